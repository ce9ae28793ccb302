// The API description the pages read (src/www/api.json) and the reference
// (docs/API.md) are what the tables say now: the description program runs in
// this process and its output is compared with the committed copies.
#include <gtest/gtest.h>

#include <cstdio>

#include "scratch.h"

#define main api_describe_main
#include "describe/api_describe.cpp"
#undef main

TEST(ApiDescription, CommittedCopiesAreCurrent) {
    for (const auto& [form, file] : {std::pair{"json", "src/www/api.json"}, {"markdown", "docs/API.md"}}) {
        Scratch dir("api");
        std::fflush(stdout);
        const int saved = ::dup(1);
        std::FILE* out = std::fopen(dir.path("out").c_str(), "w");
        ::dup2(::fileno(out), 1);
        char name[] = "api_describe", which[16];
        std::snprintf(which, sizeof which, "%s", form);
        char* argv[] = {name, which, nullptr};
        const int status = api_describe_main(2, argv);
        std::fflush(stdout);
        ::dup2(saved, 1);
        ::close(saved);
        std::fclose(out);
        EXPECT_EQ(status, 0);
        EXPECT_TRUE(slurp(dir.path("out")) == slurp(std::string(WEB_SOURCE_DIR "/") + file))
            << file << " is not what the tables say: run  build/api_describe " << form << " > " << file;
    }
}
