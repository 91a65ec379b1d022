#pragma once

#include <functional>
#include <string>

/// The four device names without a logger. Link the source with WRAP open close; other paths and descriptors go to
/// the system. Notes the effects "open PATH FLAGS" and "close FD".
namespace fakedevices {

/// open() of `path` gives `fd` from now on.
void provide(const std::string& path, int fd);

/// Makes `number` another name of `fd` and lets open() of `path` give it, so that lines with the number are
/// constant. `fd` is closed.
void provideAs(const std::string& path, int fd, int number);

/// open() of `path` gives `number`, a descriptor that swallows what is written to it.
void provideNull(const std::string& path, int number);

/// Every open() of `path` gives a new descriptor that swallows what is written to it and is always readable, at its
/// end.
void provideFresh(const std::string& path);

/// open() of `path` fails. So it does for every device that was never provided, with ENOENT.
void refuse(const std::string& path, int errorNumber);

/// From now on `hook` runs in every open() of a device, before the answer is given. Set it while nothing is opened.
void whenOpened(std::function<void()> hook);

/// The same for every close() of a device, and of -1.
void whenClosed(std::function<void()> hook);

} // namespace fakedevices
