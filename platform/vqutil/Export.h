#pragma once

/// Marks what a platform library offers to others; everything else stays inside it.
#define VQ_API __attribute__((visibility("default")))
