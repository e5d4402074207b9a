#ifndef TARN_TESTS_SUPPORT_ENTRIES_OF_H
#define TARN_TESTS_SUPPORT_ENTRIES_OF_H

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace tarn::test
{

/// How many there are: of /proc/self/task the threads of this process, of /proc/self/fd its open
/// descriptors, the one that looks included.
inline std::size_t EntriesOf(const char* folder)
{
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder),
                                                  std::filesystem::directory_iterator()));
}

} // namespace tarn::test

#endif
