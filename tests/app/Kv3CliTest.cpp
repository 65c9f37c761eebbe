#include "app/kv3/Cli.h"
#include "app/kv3/Json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace kv3cli;

TEST(Args, OptionsFlagsAndPositionalsInAnyOrder)
{
    Args args;
    ASSERT_TRUE(args.parse({"in.wav", "--depth", "16", "out.wav", "--json", "--rate=48000"},
                           {"depth", "rate"}, {"json"}));
    EXPECT_EQ(args.positional(), (std::vector<std::string>{"in.wav", "out.wav"}));
    EXPECT_EQ(args.value("depth"), "16");
    EXPECT_EQ(args.value("rate"), "48000");
    EXPECT_TRUE(args.flag("json"));
    EXPECT_FALSE(args.has("container"));
    EXPECT_FALSE(args.help());
}

TEST(Args, NegativeValuesAndDoubleDashAreValuesAndPositionals)
{
    Args args;
    ASSERT_TRUE(args.parse({"--pitch", "-7", "--", "--odd-name.wav"}, {"pitch"}, {}));
    EXPECT_EQ(args.value("pitch"), "-7");
    EXPECT_EQ(args.positional(), (std::vector<std::string>{"--odd-name.wav"}));
}

TEST(Args, RejectsUnknownOptionsMissingValuesAndFlagsWithValues)
{
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"--bogus"}, "--bogus"}, {{"--rate"}, "needs a value"}, {{"--json=1"}, "--json"}};
    for (const auto& [arguments, says] : cases)
    {
        Args args;
        EXPECT_FALSE(args.parse(arguments, {"rate"}, {"json"})) << says;
        EXPECT_NE(args.error().find(says), std::string::npos) << args.error();
    }
}

TEST(Parsing, NumbersMustBeWhole)
{
    EXPECT_EQ(parseDouble("0.75"), 0.75);
    EXPECT_EQ(parseDouble("-7"), -7.0);
    EXPECT_FALSE(parseDouble("0.75x"));
    EXPECT_FALSE(parseDouble(""));
    EXPECT_FALSE(parseDouble("nan"));
    EXPECT_FALSE(parseDouble("inf"));
    EXPECT_EQ(parseInt("48000"), 48000);
    EXPECT_EQ(parseInt("+3"), 3);
    EXPECT_FALSE(parseInt("48k"));
    EXPECT_FALSE(parseInt("1.5"));
    EXPECT_FALSE(parseInt("99999999999999999999"));
    EXPECT_EQ(parseOnOff("on"), true);
    EXPECT_EQ(parseOnOff("off"), false);
    EXPECT_FALSE(parseOnOff("maybe"));
}

TEST(Json, NestingCommasAndEscapes)
{
    JsonWriter json;
    json.beginArray();
    json.beginObject()
        .key("path")
        .value("a\"b\\c\n\x01")
        .key("frames")
        .value(std::int64_t{44100})
        .endObject();
    json.beginObject().key("ok").value(true).key("gain").value(0.5).key("none").null().endObject();
    json.value(std::numeric_limits<double>::infinity());
    json.endArray();
    EXPECT_EQ(json.str(), "[{\"path\":\"a\\\"b\\\\c\\n\\u0001\",\"frames\":44100},"
                          "{\"ok\":true,\"gain\":0.5,\"none\":null},null]");
}

TEST(ProgressBar, RenderClampsAndFills)
{
    EXPECT_EQ(ProgressBar::render("x", 0.5, 10), "x [#####-----]  50%");
    EXPECT_EQ(ProgressBar::render("x", 2.0, 4), "x [####] 100%");
    EXPECT_EQ(ProgressBar::render("x", -1.0, 4), "x [----]   0%");
    EXPECT_EQ(ProgressBar::render("x", std::nan(""), 4), "x [----]   0%");
}
