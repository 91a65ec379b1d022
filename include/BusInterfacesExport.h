#pragma once

/// Marks what libbusinterfaces exports; everything else stays inside the shared object.
#define BUSINTERFACES_API __attribute__((visibility("default")))
