#include <gtest/gtest.h>

#include "cgi/output.h"

TEST(OutputCapture, CollectsPrintedText) {
    OutputCapture cap("ab");
    out_printf("%s=%d", "x", 5);
    EXPECT_EQ(cap.text(), "x=5");
    EXPECT_EQ(in_getchar(), 'a');
    EXPECT_EQ(in_getchar(), 'b');
    EXPECT_EQ(in_getchar(), -1);
}
