#ifndef TARN_TESTS_SUPPORT_TEMPORARY_FOLDER_H
#define TARN_TESTS_SUPPORT_TEMPORARY_FOLDER_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdlib.h>
#include <string>

namespace tarn::test
{

/// A folder of its own for files of a test; goes with the object.
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "tarn-test-XXXXXX";
        mPath = ::mkdtemp(pattern.data()) != nullptr ? pattern : "/nowhere";
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string PathOf(const std::string& name) const { return mPath / name; }

    /// Writes a file and returns its path.
    std::string File(const std::string& name, const std::string& content) const
    {
        std::ofstream(PathOf(name), std::ios::binary) << content;
        return PathOf(name);
    }

    std::string ContentOf(const std::string& name) const
    {
        std::ifstream file(PathOf(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

private:
    std::filesystem::path mPath;
};

} // namespace tarn::test

#endif
