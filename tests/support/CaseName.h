#ifndef TESTS_SUPPORT_CASE_NAME_H
#define TESTS_SUPPORT_CASE_NAME_H

#include <gtest/gtest.h>

#include <string>

namespace support
{

/// Names a row of a table after its member name, for INSTANTIATE_TEST_SUITE_P.
struct CaseName {
    template <typename Row>
    std::string operator()(const testing::TestParamInfo<Row>& row) const
    {
        return row.param.name;
    }
};

} // namespace support

#endif
