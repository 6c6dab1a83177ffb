// Joining and splitting of the command line, and the limits of both.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "agent/QuixAgent.h"
#include "support/test_output.h"

namespace {

constexpr int kLimit = QuixAgent::kMaxCommandLength;

struct Joined {
    bool succeeded;
    std::string command;
    std::string printed;
};

Joined join(const char* title, const std::vector<std::string>& arguments) {
    std::vector<const char*> argv{"program"};
    for (const std::string& argument : arguments)
        argv.push_back(argument.c_str());
    std::vector<char> dst(kLimit, '?'); // no byte more than promised: the sanitizer watches
    Joined result{};
    result.printed = printed_by([&] {
        result.succeeded = QuixAgent::strcatFromArgv(test_output(), dst.data(), kLimit, title,
                                                     static_cast<int>(argv.size()), argv.data());
    });
    if (result.succeeded)
        result.command = dst.data();
    return result;
}

struct Split {
    int count;
    std::vector<std::string> arguments;
    std::string printed;
};

Split split(const char* title, const char* command) {
    std::vector<char> dst(kLimit + 2, '?');
    std::vector<const char*> argv(QuixAgent::kMaxArguments, nullptr);
    Split result{};
    result.printed = printed_by([&] {
        result.count = QuixAgent::tokenizeStrIntoArgv(test_output(), dst.data(), kLimit, argv.data(),
                                                      QuixAgent::kMaxArguments, title, command);
    });
    for (int i = 0; i < result.count; ++i)
        result.arguments.emplace_back(argv[static_cast<size_t>(i)]);
    return result;
}

} // namespace

TEST(Join, PutsTheSeparatorBeforeEveryArgument) {
    const Joined joined = join("T", {"-a", "", "b c"});
    EXPECT_TRUE(joined.succeeded);
    EXPECT_EQ(joined.command,
              "\x02-a\x02\x02"
              "b c");
    EXPECT_EQ(joined.printed, "");
}

TEST(Join, WithoutArgumentsIsEmpty) {
    EXPECT_TRUE(join("T", {}).succeeded);
    EXPECT_EQ(join("T", {}).command, "");
    char dst[kLimit];
    EXPECT_TRUE(QuixAgent::strcatFromArgv(test_output(), dst, kLimit, "T", 0, nullptr));
    EXPECT_STREQ(dst, "");
}

TEST(Join, HoldsElevenAndFiveHundredCharacters) {
    EXPECT_TRUE(join("T", {std::string(510, 'x')}).succeeded);
    EXPECT_TRUE(join("T", {std::string(200, 'x'), std::string(309, 'y')}).succeeded);
    for (const auto& arguments :
         {std::vector<std::string>{std::string(511, 'x')}, {std::string(200, 'x'), std::string(310, 'y')}}) {
        const Joined joined = join("T", arguments);
        EXPECT_FALSE(joined.succeeded);
        EXPECT_EQ(joined.printed, "Parameter length exceeds maximum allowed of 512\n");
    }
}

TEST(Join, MeasuresTheTitleOnItsOwn) {
    EXPECT_TRUE(join(std::string(512, 't').c_str(), {"x"}).succeeded);
    const Joined joined = join(std::string(513, 't').c_str(), {});
    EXPECT_FALSE(joined.succeeded);
    EXPECT_EQ(joined.printed, "QUIXAGENT: Command length exceeds maximum allowed of 512\n");
}

TEST(Split, MakesTheTitleTheFirstArgument) {
    const Split parts = split("My Tool", "\x02-a\x02 b ");
    EXPECT_EQ(parts.arguments, (std::vector<std::string>{"My Tool ", "-a", " b "}));
    EXPECT_EQ(split("My Tool", "").arguments, std::vector<std::string>{"My Tool "});
    EXPECT_EQ(split("T", "rest\x02x").arguments, (std::vector<std::string>{"T rest", "x"}));
}

TEST(Split, SkipsConsecutiveSeparators) {
    EXPECT_EQ(split("T", "\x02\x02\x02").arguments, std::vector<std::string>{"T "});
    EXPECT_EQ(split("T",
                    "\x02\x02"
                    "a\x02\x02")
                  .arguments,
              (std::vector<std::string>{"T ", "a"}));
}

TEST(Split, RefusesNullAndOverlong) {
    Split parts = split("T", nullptr);
    EXPECT_EQ(parts.count, -1);
    EXPECT_EQ(parts.printed, "T: Internal error in tokenizeStrIntoArgv(), NULL paramStr\n");

    EXPECT_EQ(split("T", std::string(511, 'x').c_str()).count, 1);
    parts = split("T", std::string(512, 'x').c_str());
    EXPECT_EQ(parts.count, -1);
    EXPECT_EQ(parts.printed, "T: Parameter length: 513 exceeds maximum specified of 512\n");
}

TEST(Split, HoldsThirtyTwoArguments) {
    std::string command;
    for (int i = 0; i < 31; ++i)
        command += "\x02x";
    EXPECT_EQ(split("T", command.c_str()).count, 32);
    EXPECT_EQ(split("T", (command + "\x02\x02").c_str()).count, 32) << "only separators follow";
    const Split parts = split("T", (command + "\x02x").c_str());
    EXPECT_EQ(parts.count, -1);
    EXPECT_EQ(parts.printed, "");
}

TEST(JoinAndSplit, GiveBackWhatIsNotEmpty) {
    std::mt19937 random(20240607);
    for (int run = 0; run < 2000; ++run) {
        std::vector<std::string> arguments(random() % 40);
        size_t joined_length = 0;
        for (std::string& argument : arguments) {
            argument.resize(random() % 30);
            for (char& character : argument)
                character = static_cast<char>(random() % 10 == 0 ? 0x02 : 'a' + random() % 26);
            joined_length += argument.size() + 1;
        }
        const Joined joined = join("Title", arguments);
        ASSERT_EQ(joined.succeeded, joined_length <= 511) << "run " << run;
        if (!joined.succeeded)
            continue;
        std::vector<std::string> expected{"Title "};
        for (const std::string& argument : arguments) {
            for (size_t start = 0; start < argument.size();) {
                const size_t end = std::min(argument.find('\x02', start), argument.size());
                if (end > start)
                    expected.push_back(argument.substr(start, end - start));
                start = end + 1;
            }
        }
        const Split parts = split("Title", joined.command.c_str());
        if (expected.size() > 32 || joined.command.size() + 5 > 512)
            expected.clear();
        ASSERT_EQ(parts.arguments, expected) << "run " << run;
    }
}
