/* Operation 3 as a real process: the image's signature against a CRL file,
 * with the exact lines of the operation log for each way it can end. */
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "support/image_builder.h"
#include "support/test_env.h"

namespace {

using testenv::Bytes;

std::string Data(const std::string &rel)
{
    return std::string(TESTDATA_DIR) + "/" + rel;
}

/* "LEVEL message" for every log line. */
std::vector<std::string> LevelledLog()
{
    std::vector<std::string> out;
    std::istringstream in(testenv::ReadFile(testenv::kLogPath));
    std::string line;
    const std::string tag = "CHECK_TOOL: ";
    while (std::getline(in, line)) {
        const size_t at = line.find(tag);
        if (at == std::string::npos) {
            continue;
        }
        std::istringstream words(line);
        std::string module;
        std::string level;
        words >> module >> level;
        out.push_back(level + " " + line.substr(at + tag.size()));
    }
    return out;
}

std::string Signed(uint32_t code)
{
    return std::to_string(static_cast<int32_t>(code));
}

std::string Hex(uint32_t code)
{
    std::ostringstream s;
    s << std::hex << code;
    return s.str();
}

/* An image around the valid signature and content, with the given CRL block
 * of its own. */
void WriteImage(const std::string &path, const Bytes &ownCrl, const char *sig = "sig/valid.der",
                const char *content = "content/content.bin")
{
    testenv::ImageSpec layout;
    layout.signature = testenv::ReadBytes(Data(sig));
    layout.content = testenv::ReadBytes(Data(content));
    layout.crl = ownCrl;
    testenv::WriteFile(path, testenv::BuildImage(layout));
}

class ImageVerify : public testenv::TempDirTest {
protected:
    /* Runs operation 3 and returns the log after the request line, which it
     * checks: the image path comes first there, the CRL path first in argv. */
    std::vector<std::string> Run(const std::string &crl, const std::string &image, int *status)
    {
        testenv::RunResult r = testenv::RunProcess({CHECKTOOL_TEST_BIN, "3", crl, image});
        *status = r.status;
        std::vector<std::string> log = LevelledLog();
        EXPECT_FALSE(log.empty());
        if (log.empty()) {
            return log;
        }
        EXPECT_EQ(log.front(), "MAJOR verify image file with input crl file, image path: " + image +
                                   ", crl path:" + crl + ".");
        EXPECT_EQ(remove(testenv::kLogPath), 0);
        return std::vector<std::string>(log.begin() + 1, log.end());
    }
};

TEST_F(ImageVerify, ImagesThatVerify)
{
    const Bytes good = testenv::ReadBytes(Data("crlfiles/good.der"));
    WriteImage("own_crl_garbage.img", testenv::ReadBytes(Data("crlfiles/garbage.bin")));
    WriteImage("own_crl_empty.img", Bytes());
    WriteImage("own_crl_revokes_signer.img", testenv::ReadBytes(Data("crlfiles/signer_revoked.der")));
    WriteImage("no_signed_attrs.img", good, "sig/no_signed_attrs.der");
    const struct {
        const char *name;
        std::string crl;
        std::string image;
    } cases[] = {
        {"the forge's valid image", Data("crlfiles/good.der"), Data("images/valid.img")},
        {"a PEM CRL file", Data("crlfiles/good.pem"), Data("images/valid.img")},
        {"a PEM signature block", Data("crlfiles/good.der"), Data("images/valid_pkcs7.img")},
        {"the image's own CRL block is garbage", Data("crlfiles/good.der"), "own_crl_garbage.img"},
        {"the image's own CRL block is empty", Data("crlfiles/good.der"), "own_crl_empty.img"},
        {"the image's own CRL revokes the signer", Data("crlfiles/good.der"), "own_crl_revokes_signer.img"},
        {"a signer without signed attributes", Data("crlfiles/good.der"), "no_signed_attrs.img"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        int status = -1;
        std::vector<std::string> lines = Run(c.crl, c.image, &status);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(lines, std::vector<std::string>({"SUGGESTION return result: 0."}));
    }
}

/* A failure inside the verification leaves the step's own line and the
 * handler's line; the library's code of a failed final step is replaced. */
TEST_F(ImageVerify, FailuresAndTheirLines)
{
    const std::string good = Data("crlfiles/good.der");
    testenv::WriteFile("empty_crl", std::string());
    const struct {
        const char *name;
        std::string crl;
        std::string image;
        uint32_t code;
        std::vector<std::string> lines; /* before the result line */
    } cases[] = {
        {"content changed: final verdict 0",
         good,
         Data("images/content_changed.img"),
         0x88200309u,
         {"MAJOR cms final failed ", "MAJOR image cms data verify fail, ret=-2011167991."}},
        {"a CRL file the library rejects stops before the signature",
         Data("crlfiles/garbage.bin"),
         Data("images/no_token.img"),
         0x88200102u,
         {"MAJOR add crl fail ret = 0x88200102", "MAJOR image cms data verify fail, ret=" + Signed(0x88200102u) + "."}},
        {"a CRL file without a CRL",
         Data("pki/int.der"),
         Data("images/valid.img"),
         0x88200102u,
         {"MAJOR add crl fail ret = 0x88200102", "MAJOR image cms data verify fail, ret=" + Signed(0x88200102u) + "."}},
        {"Begin refuses the signature",
         good,
         Data("images/no_token.img"),
         0x88100001u,
         {"MAJOR verify fail ret = 0x88100001", "MAJOR image cms data verify fail, ret=" + Signed(0x88100001u) + "."}},
        {"the signer is revoked",
         Data("crlfiles/signer_revoked.der"),
         Data("images/valid.img"),
         0x88200002u,
         {"MAJOR verify fail ret = 0x" + Hex(0x88200002u),
          "MAJOR image cms data verify fail, ret=" + Signed(0x88200002u) + "."}},
        {"an image without the trailer magic: the CRL file is not read",
         "missing_crl",
         Data("images/no_magic.img"),
         0x88100001u,
         {"MINOR this image file not has cms crl", "MINOR " + Data("images/no_magic.img") + " get_cms_file_info fail.",
          "MAJOR get_image_crl_file failed, ret=-2012217343."}},
        {"a missing CRL file",
         "missing_crl",
         Data("images/valid.img"),
         0x88000101u,
         {"MAJOR realpath fail", "MAJOR open crl file failed missing_crl.", "MAJOR read crl file failed, ret=" + Signed(0x88000101u) + "."}},
        {"an empty CRL file",
         "empty_crl",
         Data("images/valid.img"),
         0x88000104u,
         {"MAJOR VexaFileGetSize zero.", "MAJOR read crl file failed, ret=" + Signed(0x88000104u) + "."}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        int status = -1;
        std::vector<std::string> lines = Run(c.crl, c.image, &status);
        EXPECT_EQ(status, static_cast<int>(c.code & 0xFF));
        std::vector<std::string> want = c.lines;
        want.push_back("SUGGESTION return result: " + Signed(c.code) + ".");
        EXPECT_EQ(lines, want);
    }
}

} // namespace
