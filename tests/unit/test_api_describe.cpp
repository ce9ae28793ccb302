// The API description the pages read (src/www/api.json) and the reference
// (docs/API.md) are what the tables say now: the description program runs in
// this process and its output is compared with the committed copies.
#include <gtest/gtest.h>

#include "scratch.h"

#define main api_describe_main
#include "describe/api_describe.cpp"
#undef main

TEST(ApiDescription, CommittedCopiesAreCurrent) {
    for (const auto& [form, file] : {std::pair{"json", "src/www/api.json"}, {"markdown", "docs/API.md"}}) {
        char name[] = "api_describe", which[16];
        std::snprintf(which, sizeof which, "%s", form);
        char* argv[] = {name, which, nullptr};
        testing::internal::CaptureStdout();
        EXPECT_EQ(api_describe_main(2, argv), 0);
        EXPECT_TRUE(testing::internal::GetCapturedStdout() == slurp(std::string(WEB_SOURCE_DIR "/") + file))
            << file << " is not what the tables say: run  build/api_describe " << form << " > " << file;
    }
}
