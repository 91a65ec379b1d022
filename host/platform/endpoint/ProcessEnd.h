#pragma once

namespace vqhost {

/// True once the process runs its exit handlers and destructors of static objects.
///
/// Known at once if the main thread returns from main() or calls exit(). If another thread calls exit(), it is
/// known only when nearly all destructors have run.
bool processIsEnding();

} // namespace vqhost
