// Messages to a sink, also when there is no memory to compose them.
#include "god/Report.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace sylvora {
namespace {

TEST(Report, ASinkGetsMessagesWithTheirStream) {
    std::vector<std::string> received;
    std::mutex mutex;
    const auto sink = [](void* context, int stream, const char* text) {
        static_cast<std::vector<std::string>*>(context)->push_back(std::to_string(stream) + text);
    };
    const CallContext context = {nullptr, sink, &received, &mutex};
    {
        const ContextScope scope(&context);
        EXPECT_EQ(Fail("row ", 3, ": ", 0.1234567, "\n"), -1);
        Print("two\nlines\n");
        Warn("a token with a NUL: ", std::string("1\0002", 3), "\n");
        FlushOutput();
        EXPECT_EQ(Guarded([]() -> int { throw std::bad_alloc(); }), -1);
        const ContextScope none(nullptr);
        EXPECT_FALSE(HasSink());
    }
    EXPECT_FALSE(HasSink());
    const std::vector<std::string> expected = {"2row 3: 0.123457\n", "1two\nlines\n",
                                               "2a token with a NUL: 1 2\n",
                                               "2ERROR: Failed to allocate memory!\n"};
    EXPECT_EQ(received, expected);
}

TEST(Report, AShortTextIsCutAtItsEnd) {
    ShortText whole("row ", 3, ": ", 0.1234567, "\n");
    EXPECT_STREQ(whole.Data(), "row 3: 0.123457\n");
    EXPECT_EQ(whole.Size(), 16U);
    ShortText cut(std::string(5000, 'x'), 7, "\n");
    EXPECT_EQ(cut.Data(), std::string(1022, 'x') + "\n");
    EXPECT_EQ(cut.Size(), 1023U);
}

}  // namespace
}  // namespace sylvora
