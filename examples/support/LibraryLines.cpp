#include "LibraryLines.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>

void moveLibraryLines(const std::string& file)
{
    auto buffer = std::make_unique<std::filebuf>();
    if (buffer->open(file, std::ios::out | std::ios::trunc) == nullptr) {
        throw std::runtime_error("cannot write " + file + ": " + std::strerror(errno));
    }
    std::cout.rdbuf(buffer.release()); // never destroyed: the library may write until the process ends
}
