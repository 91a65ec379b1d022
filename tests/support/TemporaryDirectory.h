#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>

/// A directory of its own for one test, removed with everything in it.
class TemporaryDirectory
{
public:
    TemporaryDirectory()
    {
        std::string name = (std::filesystem::temp_directory_path() / "businterfaces-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        directory = name;
    }
    ~TemporaryDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    /// Path of the directory itself.
    std::string path() const { return directory.string(); }

    /// Path of a file in the directory, whether it is there or not.
    std::string path(std::string_view name) const { return (directory / name).string(); }

    /// Writes a file and returns its path.
    std::string write(std::string_view name, std::string_view content) const
    {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }

    /// Everything that the file holds.
    std::string read(std::string_view name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::filesystem::path directory;
};
