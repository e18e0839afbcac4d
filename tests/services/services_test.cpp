#include <gtest/gtest.h>

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/test_env.h"
#include "vexa/vexa_list.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

using testenv::LogMessages;
using testenv::TempDirTest;
using testenv::WriteFile;

class ServicesTest : public TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        ASSERT_EQ(mkdir(testenv::kLogDir, 0750), 0);
    }
};

TEST_F(ServicesTest, MallocOfZeroLeavesThePointerAndLogsASuggestion)
{
    void *p = reinterpret_cast<void *>(0x1234);
    EXPECT_EQ(VexaMalloc(&p, 0), VEXA_OK);
    EXPECT_EQ(p, reinterpret_cast<void *>(0x1234));
    EXPECT_EQ(VexaMalloc(nullptr, 4), VEXA_ERR_PARAM);
    auto log = testenv::ReadFile(testenv::kLogPath);
    EXPECT_NE(log.find(" SUGGESTION root "), std::string::npos);
    EXPECT_NE(log.find("CHECK_TOOL: input size is 0.\n\n"), std::string::npos);
    EXPECT_NE(log.find("CHECK_TOOL: input ppByte is null.\n\n"), std::string::npos);
}

TEST_F(ServicesTest, MallocZeroClears)
{
    unsigned char *p = nullptr;
    ASSERT_EQ(VexaMallocZero(reinterpret_cast<void **>(&p), 64), VEXA_OK);
    for (int i = 0; i < 64; i++) {
        ASSERT_EQ(p[i], 0);
    }
    VexaFree(p);
    VexaFree(nullptr);
}

TEST_F(ServicesTest, FileOpenPathLengthBoundary)
{
    /* 4095 characters reach path resolution (and fail there, the file does
     * not exist); 4096 are refused before. */
    std::string longPath = "/" + std::string(4094, 'a');
    EXPECT_EQ(VexaFileOpen(longPath.c_str(), "rb"), nullptr);
    EXPECT_EQ(VexaFileOpen((longPath + "b").c_str(), "rb"), nullptr);
    EXPECT_EQ(LogMessages(), (std::vector<std::string>{"realpath fail", "path length is invalid"}));
}

TEST_F(ServicesTest, FileOpenNeedsAnExistingFileAndFollowsLinks)
{
    EXPECT_EQ(VexaFileOpen("new-file", "wb"), nullptr) << "the tool never creates files";
    WriteFile("target", std::string("abcdef"));
    ASSERT_EQ(symlink("target", "link"), 0);
    FILE *f = VexaFileOpen("link", "rb");
    ASSERT_NE(f, nullptr);
    char buf[8] = {0};
    EXPECT_EQ(VexaFileRead(buf, sizeof buf, f), 6u);
    EXPECT_STREQ(buf, "abcdef");
    EXPECT_EQ(VexaFileClose(f), 0);
    EXPECT_EQ(VexaFileClose(nullptr), -1);
    EXPECT_EQ(VexaFileOpen(nullptr, "rb"), nullptr);
    auto msgs = LogMessages();
    ASSERT_GE(msgs.size(), 2u);
    EXPECT_EQ(msgs[0], "realpath fail");
    EXPECT_EQ(msgs.back().rfind("path or modeis null, ", 0), 0u);
}

TEST_F(ServicesTest, GetSizeKeepsThePosition)
{
    WriteFile("f", std::string(1000, 'x'));
    FILE *f = VexaFileOpen("f", "rb");
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(fseek(f, 123, SEEK_SET), 0);
    EXPECT_EQ(VexaFileGetSize(f), 1000u);
    EXPECT_EQ(ftell(f), 123);
    VexaFileClose(f);
    EXPECT_EQ(VexaFileGetSize(nullptr), 0u);
}

TEST_F(ServicesTest, StringEqualityTests)
{
    const char a[] = "abc";
    const char b[] = "abc";
    EXPECT_EQ(VexaStrCmp(a, b), 0);
    EXPECT_EQ(VexaStrCmp("abc", "abcd"), -1);
    EXPECT_EQ(VexaStrCmp("abcd", "abc"), -1) << "longer string is unequal in either order";
    EXPECT_NE(VexaStrCmp("abd", "abc"), 0);
    EXPECT_EQ(VexaStrCmp(nullptr, "a"), -1);
    EXPECT_EQ(VexaStrLen(nullptr), 0u);
    EXPECT_EQ(VexaMemCmp(nullptr, "a", 1), -1);
    EXPECT_EQ(VexaMemCmp("ab", "ab", 2), 0);
    const char *text = "abc";
    EXPECT_EQ(VexaStrChr(text, 'c'), text + 2);
    EXPECT_EQ(VexaStrStr(text, "bc"), text + 1);
    auto log = testenv::ReadFile(testenv::kLogPath);
    EXPECT_NE(log.find("MAJOR root"), std::string::npos);
    EXPECT_NE(log.find("CHECK_TOOL: input string is null.\n\n"), std::string::npos);
    EXPECT_NE(log.find("CHECK_TOOL: input buffer is null.\n\n"), std::string::npos);
}

TEST(VexaList, SeventeenthAppendFailsAndKeepsTheSixteen)
{
    VexaList list = {};
    int values[17];
    for (int i = 0; i < 16; i++) {
        ASSERT_EQ(VexaListAppend(&list, &values[i]), VEXA_OK);
    }
    EXPECT_EQ(VexaListAppend(&list, &values[16]), VEXA_ERR_LIST_FULL);
    ASSERT_EQ(list.count, 16u);
    for (int i = 0; i < 16; i++) {
        EXPECT_EQ(list.items[i], &values[i]);
    }
    EXPECT_EQ(VexaListAppend(&list, nullptr), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaListAppend(nullptr, &values[0]), VEXA_ERR_PARAM);
}

struct Keyed {
    int key;
    int order;
};

int32_t CompareKeys(const void *a, const void *b)
{
    return static_cast<const Keyed *>(a)->key - static_cast<const Keyed *>(b)->key;
}

std::vector<int> g_freed;
void RecordFree(void *entry)
{
    g_freed.push_back(static_cast<Keyed *>(entry)->order);
}

TEST(VexaList, SortIsStableAndFreeAllRunsInOrder)
{
    Keyed k[] = {{3, 0}, {1, 1}, {3, 2}, {0, 3}, {1, 4}, {3, 5}};
    VexaList list = {};
    for (auto &e : k) {
        ASSERT_EQ(VexaListAppend(&list, &e), VEXA_OK);
    }
    ASSERT_EQ(VexaListSort(&list, CompareKeys), VEXA_OK);
    std::vector<int> order;
    for (uint32_t i = 0; i < list.count; i++) {
        order.push_back(static_cast<Keyed *>(list.items[i])->order);
    }
    EXPECT_EQ(order, (std::vector<int>{3, 1, 4, 0, 2, 5})) << "equal keys keep their order of addition";

    VexaList one = {};
    ASSERT_EQ(VexaListSort(&one, CompareKeys), VEXA_OK);
    ASSERT_EQ(VexaListAppend(&one, &k[0]), VEXA_OK);
    ASSERT_EQ(VexaListSort(&one, CompareKeys), VEXA_OK);
    EXPECT_EQ(one.items[0], &k[0]);
    EXPECT_EQ(VexaListSort(&one, nullptr), VEXA_ERR_PARAM);

    g_freed.clear();
    VexaListFreeAll(&list, RecordFree);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(g_freed, (std::vector<int>{3, 1, 4, 0, 2, 5}));
}

} // namespace
