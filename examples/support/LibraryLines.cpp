#include "LibraryLines.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ext/stdio_sync_filebuf.h>
#include <iostream>
#include <stdexcept>

void moveLibraryLines(const std::string& file)
{
    std::FILE* const stream = std::fopen(file.c_str(), "w"); // never closed: the library may write until the end
    if (stream == nullptr) {
        throw std::runtime_error("cannot write " + file + ": " + std::strerror(errno));
    }
    // Of the kind that standard output has itself: several threads may write, which a plain file buffer forbids.
    static __gnu_cxx::stdio_sync_filebuf<char>& buffer = *new __gnu_cxx::stdio_sync_filebuf<char>(stream);
    std::cout.rdbuf(&buffer);
}
