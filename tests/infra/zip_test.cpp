#include "infra/corvo_zip.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

/** Result, and what was unpacked. */
std::pair<int, std::string> unzip(const std::string& in) {
    char* out = nullptr;
    const int len = corvo_zip_unzip(in.data(), static_cast<unsigned>(in.size()), &out);
    std::string text = out ? std::string(out, static_cast<size_t>(len)) : "";
    corvo_zip_destroy(out);
    return {len, text};
}

std::string zip(const std::string& in) {
    std::string out;
    const int size = corvo_zip_zip(in, out, true);
    EXPECT_EQ(size, static_cast<int>(out.size()));
    return out;
}

TEST(Zip, AHeaderMakesAContainerOfTheRawForm) {
    const std::string text(5000, 'x');
    const std::string container = zip(text);
    std::string raw;
    EXPECT_GT(corvo_zip_zip(text, raw, false), 0);
    EXPECT_EQ(container.substr(8), raw);
    EXPECT_EQ(container.substr(0, 4), "\xA2\x27\xA8\xAB");
    EXPECT_TRUE(corvo_zip_is_zipped(container.data(), 8));
    EXPECT_FALSE(corvo_zip_is_zipped(container.data(), 7));
    EXPECT_FALSE(corvo_zip_is_zipped("{\"a\":1}   ", 10));
}

TEST(Zip, ADamagedContainerIsRefused) {
    const std::string good = zip(std::string(5000, 'x') + "end");
    const auto with_len = [&](uint32_t len) {
        std::string changed = good;
        std::memcpy(changed.data() + 4, &len, sizeof len);
        return changed;
    };
    for (uint32_t len : {5002u, 5004u, 0u, (64u << 20) + 1, UINT32_MAX})
        EXPECT_EQ(unzip(with_len(len)), std::make_pair(-22, std::string())) << len;
    for (const std::string& bad :
         {good.substr(0, good.size() - 1), good.substr(0, 8), good + "x", std::string()})
        EXPECT_EQ(unzip(bad), std::make_pair(-22, std::string())) << bad.size();
}

}  // namespace
