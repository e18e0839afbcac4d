/* SPDX-License-Identifier: Apache-2.0 */
/* Collects the library's diagnostic records for a test. */
#ifndef TESTS_ASN1_LOG_CAPTURE_H
#define TESTS_ASN1_LOG_CAPTURE_H

#include <gtest/gtest.h>
#include <stdint.h>

#include <algorithm>
#include <string>
#include <vector>

#include "services/log_sink.h"

namespace logtest {

struct Record {
    uint32_t level;
    uint32_t line;
    std::string function;
    uint32_t code;
    std::string message;
};

inline std::vector<Record> &Records()
{
    static std::vector<Record> records;
    return records;
}

inline void Observe(uint32_t level, const char *function, uint32_t line, uint32_t code, const char *message)
{
    EXPECT_NE(message, nullptr) << "a record without a format still has an empty message";
    Records().push_back(
        Record{level, line, function != nullptr ? function : "", code, message != nullptr ? message : ""});
}

inline bool HasRecord(const std::string &function, uint32_t code, const std::string &message)
{
    return std::any_of(Records().begin(), Records().end(), [&](const Record &r) {
        return r.function == function && r.code == code && r.message == message;
    });
}

class Captured : public ::testing::Test {
protected:
    void SetUp() override
    {
        Records().clear();
        VexaLogSetObserver(Observe);
    }
    void TearDown() override
    {
        VexaLogSetObserver(nullptr);
        Records().clear();
    }
};

} // namespace logtest

#endif
