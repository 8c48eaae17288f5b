#include "status_names.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <string>

namespace {

// The statuses as the headers spell them: "  name = (int32_t)0x...".
std::map<std::string, uint32_t> statusesInHeaders()
{
    std::map<std::string, uint32_t> found;
    for (const char *header : {"include/kip/kip.h", "services/kimg/kimg.h", "services/kippel/kippel.h",
                               "services/kmath/kmath.h", "services/kstd/kstd.h", "services/ksys/ksys.h"}) {
        std::ifstream file(std::string(KIP_SOURCE_DIR "/") + header);
        EXPECT_TRUE(file) << header;
        const std::string sign = " = (int32_t)0x8";
        for (std::string line; std::getline(file, line);)
            if (const size_t at = line.find(sign); at != std::string::npos)
                found[line.substr(line.find_first_not_of(' '), at - line.find_first_not_of(' '))] =
                    static_cast<uint32_t>(std::stoul(line.substr(at + sign.size() - 3), nullptr, 16));
    }
    return found;
}

TEST(StatusNames, CoverTheHeadersExactly)
{
    std::map<std::string, uint32_t> named;
    for (const kiptool::StatusName &known : kiptool::statusNames())
        named[known.name] = static_cast<uint32_t>(known.status);
    const std::map<std::string, uint32_t> inHeaders = statusesInHeaders();
    EXPECT_GT(inHeaders.size(), 30u);
    for (const auto &[name, status] : inHeaders)
        EXPECT_EQ(named.count(name) == 1 ? named[name] : 0, status) << name;
    EXPECT_EQ(named.size(), inHeaders.size());
}

TEST(StatusNames, DescribeKnownAndUnknown)
{
    EXPECT_EQ(
        kiptool::describeStatus(static_cast<int32_t>(0x80000302u)).rfind("kmath_statusSingular (0x80000302): ", 0), 0u);
    EXPECT_EQ(kiptool::describeStatus(static_cast<int32_t>(0x8123abcdu)), "status 0x8123abcd");
}

} // namespace
