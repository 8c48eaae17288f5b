#include "status_names.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>

namespace {

using Names = std::map<std::string, uint32_t>;

TEST(StatusNames, CoverTheHeadersExactly)
{
    Names inHeaders, named;
    const std::regex status("(\\w+) = \\(int32_t\\)(0x8[0-9a-fA-F]+)");
    for (const char *header : {"include/kip/kip.h", "services/kimg/kimg.h", "services/kippel/kippel.h",
                               "services/kmath/kmath.h", "services/kstd/kstd.h", "services/ksys/ksys.h"}) {
        std::ifstream file(std::string(KIP_SOURCE_DIR "/") + header);
        EXPECT_TRUE(file) << header;
        std::smatch match;
        for (std::string line; std::getline(file, line);)
            if (std::regex_search(line, match, status))
                inHeaders[match[1]] = static_cast<uint32_t>(std::stoul(match[2], nullptr, 16));
    }
    for (const kiptool::StatusName &known : kiptool::statusNames())
        named[known.name] = static_cast<uint32_t>(known.status);
    EXPECT_GT(inHeaders.size(), 30u);
    EXPECT_EQ(named, inHeaders);
    EXPECT_EQ(kiptool::describeStatus(static_cast<int32_t>(0x8123abcdu)), "status 0x8123abcd");
}

} // namespace
