// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "support/verify_env.h"
#include "vexa/vexa_list.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

using testenv::LogMessages;
using testenv::WriteFile;

/* a private directory with the log directory the services write to */
using ServicesTest = testenv::VerifyTest;

TEST_F(ServicesTest, MemoryAndStringServicesRefuseNullsWithAMessage)
{
    void *p = reinterpret_cast<void *>(0x1234);
    EXPECT_EQ(VexaMalloc(&p, 0), VEXA_OK);
    EXPECT_EQ(p, reinterpret_cast<void *>(0x1234)) << "a zero size leaves the pointer";
    EXPECT_EQ(VexaMalloc(nullptr, 4), VEXA_ERR_PARAM);
    unsigned char *zeroed = nullptr;
    ASSERT_EQ(VexaMallocZero(reinterpret_cast<void **>(&zeroed), 64), VEXA_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(zeroed), 64), std::string(64, '\0'));
    VexaFree(zeroed);
    VexaFree(nullptr);

    EXPECT_EQ(VexaStrCmp("abc", "abc"), 0);
    EXPECT_EQ(VexaStrCmp("abc", "abcd"), -1);
    EXPECT_EQ(VexaStrCmp("abcd", "abc"), -1) << "a longer string is unequal in either order";
    EXPECT_NE(VexaStrCmp("abd", "abc"), 0);
    EXPECT_EQ(VexaStrCmp(nullptr, "a"), -1);
    EXPECT_EQ(VexaStrLen(nullptr), 0u);
    EXPECT_EQ(VexaMemCmp(nullptr, "a", 1), -1);
    EXPECT_EQ(LogMessages(testenv::kLogPath, true),
              (testenv::Lines{"SUGGESTION input size is 0.", "MAJOR input ppByte is null.",
                              "MAJOR input string is null.", "MAJOR input string is null.",
                              "MAJOR input buffer is null."}));
}

TEST_F(ServicesTest, FileOpenNeedsAnExistingFileOfABoundedPathAndFollowsLinks)
{
    /* 4095 characters reach path resolution (and fail there, the file does
     * not exist); 4096 are refused before */
    const std::string longPath = "/" + std::string(4094, 'a');
    EXPECT_EQ(VexaFileOpen(longPath.c_str(), "rb"), nullptr);
    EXPECT_EQ(VexaFileOpen((longPath + "b").c_str(), "rb"), nullptr);
    EXPECT_EQ(VexaFileOpen("new-file", "wb"), nullptr) << "the tool never creates files";
    EXPECT_EQ(VexaFileOpen(nullptr, "rb"), nullptr);
    testenv::Lines msgs = LogMessages();
    ASSERT_EQ(msgs.size(), 4u);
    msgs[3].resize(std::min<size_t>(msgs[3].size(), 21));
    EXPECT_EQ(msgs, (testenv::Lines{"realpath fail", "path length is invalid", "realpath fail", "path or modeis null, "}));

    WriteFile("target", std::string(1000, 'x'));
    ASSERT_EQ(symlink("target", "link"), 0);
    FILE *f = VexaFileOpen("link", "rb");
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(fseek(f, 123, SEEK_SET), 0);
    EXPECT_EQ(VexaFileGetSize(f), 1000u);
    EXPECT_EQ(ftell(f), 123) << "the size query keeps the position";
    char buf[8] = {0};
    EXPECT_EQ(VexaFileRead(buf, 7, f), 7u);
    EXPECT_STREQ(buf, "xxxxxxx");
    EXPECT_EQ(VexaFileClose(f), 0);
    EXPECT_EQ(VexaFileClose(nullptr), -1);
    EXPECT_EQ(VexaFileGetSize(nullptr), 0u);
}

/* Sorting, ties keeping their order and the capacity of 16 show through the
 * CRL choice and the store. */
TEST(VexaList, FreeAllReleasesEveryEntryAndEmptiesTheList)
{
    static int keys[] = {3, 1, 2};
    static std::vector<int> freed;
    VexaList list = {};
    for (int &k : keys) {
        ASSERT_EQ(VexaListAppend(&list, &k), VEXA_OK);
    }
    EXPECT_EQ(VexaListAppend(&list, nullptr), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaListSort(&list, nullptr), VEXA_ERR_PARAM);
    VexaListFreeAll(&list, [](void *entry) { freed.push_back(*static_cast<int *>(entry)); });
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(freed, (std::vector<int>{3, 1, 2}));
}

} // namespace
