#include "status_names.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <string>

namespace {

using Names = std::map<std::string, uint32_t>;

TEST(StatusNames, CoverTheHeadersExactly)
{
    Names inHeaders, named;
    const std::string sign = "(int32_t)0x8"; // name = (int32_t)0x8...u,
    for (const char *header : {"include/kip/kip.h", "services/kimg/kimg.h", "services/kippel/kippel.h",
                               "services/kmath/kmath.h", "services/kstd/kstd.h", "services/ksys/ksys.h"}) {
        std::ifstream file(std::string(KIP_SOURCE_DIR "/") + header);
        EXPECT_TRUE(file) << header;
        std::string name, equals;
        for (std::string word; file >> word; name = equals, equals = word)
            if (word.rfind(sign, 0) == 0 && equals == "=")
                inHeaders[name] = static_cast<uint32_t>(std::stoul(word.substr(sign.size() - 3), nullptr, 16));
    }
    for (const kiptool::StatusName &known : kiptool::statusNames())
        named[known.name] = static_cast<uint32_t>(known.status);
    EXPECT_GT(inHeaders.size(), 30u);
    EXPECT_EQ(named, inHeaders);
    EXPECT_EQ(kiptool::describeStatus(static_cast<int32_t>(0x8123abcdu)), "status 0x8123abcd");
}

} // namespace
