// The file of views: what is written, byte for byte, and what is sent when one is recalled.
#include "control/camera/obsbot.h"
#include "tests/support/environment.h"
#include "tests/unit/camera/presetfixture.h"
#include "tests/unit/task/printed.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

using Told = std::vector<std::string>;

const std::string sixOf(const std::string& values) {
    const char* const names[] = {"pan_absolute", "tilt_absolute", "zoom_absolute",
                                 "auto_focus",   "pan_speed",     "tilt_speed"};
    std::istringstream numbers(values);
    std::string text = "{", number;
    for (const char* name : names) {
        numbers >> number;
        text += (text.size() == 1 ? "\"" : ",\"") + std::string(name) + "\":" + number;
    }
    return text + "}";
}

class Presets : public PresetFixture {
  protected:
    // What saving makes of a file.
    std::string savedOver(const std::string& content, int expected = 0) {
        write(content);
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(bot->save_view_data(), expected) << content; }), "");
        return read();
    }
    void expectLeftAlone(const std::string& content) { EXPECT_EQ(savedOver(content, -1), content); }
    // What recalling sends; the view is in force afterwards.
    Told recalled(const std::string& content, char view) {
        write(content);
        const std::size_t before = rig.told().size();
        printedBy([&] { EXPECT_EQ(bot->change_view(view), 0) << content; });
        EXPECT_EQ(bot->currentView, view);
        Told told = rig.told();
        told.erase(told.begin(), told.begin() + static_cast<std::ptrdiff_t>(before));
        return told;
    }

    const std::string now = sixOf("7200 -7200 30 0 0 0");  // where the fake camera stands
};

TEST_F(Presets, AFreshFileIsMadeAndFilled) {
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->save_view_data(), 0); }), "");
    EXPECT_EQ(read(), "{\"uvc0_view1\":" + now + "}");
}

// Seen when the second writing fails: what the first left.
TEST_F(Presets, AFreshFileHasFourBytes) {
    rig.presetUnreadable = true;
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->save_view_data(), -1); }), "");
    EXPECT_EQ(read(), std::string("{\n}\0", 4));
    rig.presetUnreadable = false;
    EXPECT_EQ(bot->save_view_data(), 0);
    EXPECT_EQ(read(), "{\"uvc0_view1\":" + now + "}");
}

TEST_F(Presets, AFolderThatIsNotThere) {
    rig.presetPath = folder + "/none/presets";
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->save_view_data(), -1); }),
              "Error: Failed to create default profile!\n");
}

TEST_F(Presets, AFileThatCannotBeWrittenIsNoFailure) {
    write("{}");
    rig.presetUnwritable = true;
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->save_view_data(), 0); }), "");
    EXPECT_EQ(read(), "{}");
}

TEST_F(Presets, TheNumberOfTheViewIsItsKey) {
    for (const int view : {1, 2, 3, 4, 5, 6}) {
        bot->currentView = view;
        EXPECT_EQ(savedOver("{}"), "{\"uvc0_view" + std::to_string(view) + "\":" + now + "}");
    }
    for (const int view : {0, 7, -1, 100}) {
        bot->currentView = view;
        EXPECT_EQ(savedOver("{}"), "{\"uvc0_view1\":" + now + "}");
    }
}

TEST_F(Presets, ViewsStandInTheOrderOfTheirFirstSaving) {
    bot->currentView = 3;
    bot->save_view_data();
    bot->controls[UVC_PAN_ABSOLUTE].value = 5;
    bot->currentView = 1;
    bot->save_view_data();
    bot->controls[UVC_TILT_SPEED].value = -9;
    bot->currentView = 3;
    bot->save_view_data();
    EXPECT_EQ(read(), "{\"uvc0_view3\":" + sixOf("5 -7200 30 0 0 -9") +
                          ",\"uvc0_view1\":" + sixOf("5 -7200 30 0 0 0") + "}");
}

TEST_F(Presets, SavingDoesNotAskTheCamera) {
    const unsigned reads = rig.controlReads(), openings = rig.openings(cameraNode);
    bot->save_view_data();
    EXPECT_EQ(rig.controlReads(), reads);
    EXPECT_EQ(rig.openings(cameraNode), openings);
}

TEST_F(Presets, MembersAreUpdatedInPlaceAndTheRestKept) {
    EXPECT_EQ(savedOver(" { \"other\" : [ 1 , 2.5 , null , \"\\u00e4\\n\" ] ,\n\"uvc0_view1\" : "
                        "{ \"tilt_speed\":1, \"note\":\"x\", \"pan_absolute\":2 } } "),
              "{\"other\":[1,2.5,null,\"\xC3\xA4\\n\"],\"uvc0_view1\":{\"tilt_speed\":0,\"note\":"
              "\"x\",\"pan_absolute\":7200,\"tilt_absolute\":-7200,\"zoom_absolute\":30,\"auto_"
              "focus\":0,\"pan_speed\":0}}");
}

TEST_F(Presets, AMemberThatIsNoIntegerIsAddedASecondTime) {
    for (const char* odd : {"\"30\"", "30.0", "null", "true", "[30]", "2147483648", "-2147483649",
                            "5000000000", "18446744073709551615"}) {
        const std::string view = std::string("{\"zoom_absolute\":") + odd + "}";
        const std::string grown =
            "{\"zoom_absolute\":" + std::string(odd) +
            ",\"pan_absolute\":7200,\"tilt_absolute\":-7200,\"zoom_"
            "absolute\":30,\"auto_focus\":0,\"pan_speed\":0,\"tilt_speed\":0}";
        EXPECT_EQ(savedOver("{\"uvc0_view1\":" + view + "}"), "{\"uvc0_view1\":" + grown + "}");
    }
    // The first of the name decides, each time.
    const std::string twice = "{\"uvc0_view1\":{\"pan_absolute\":\"a\",\"pan_absolute\":1}}";
    EXPECT_EQ(savedOver(twice).find("{\"uvc0_view1\":{\"pan_absolute\":\"a\",\"pan_absolute\":1,"
                                    "\"pan_absolute\":7200,"),
              0U);
    const std::string first = "{\"uvc0_view1\":{\"pan_absolute\":1,\"pan_absolute\":\"a\"}}";
    EXPECT_EQ(savedOver(first).find("{\"uvc0_view1\":{\"pan_absolute\":7200,\"pan_absolute\":\"a\","
                                    "\"tilt_absolute\":"),
              0U);
}

TEST_F(Presets, TheLimitsOfIntegersAreIntegers) {
    bot->controls[UVC_PAN_ABSOLUTE].value = -2147483647 - 1;
    const std::string text =
        savedOver("{\"uvc0_view1\":{\"pan_absolute\":2147483647,\"tilt_absolute\":-2147483648}}");
    EXPECT_EQ(text.find("{\"uvc0_view1\":{\"pan_absolute\":-2147483648,\"tilt_absolute\":-7200,"),
              0U);
}

TEST_F(Presets, AViewThatIsNoObjectIsAddedASecondTime) {
    for (const char* odd : {"null", "[]", "1", "\"x\""}) {
        const std::string start = std::string("{\"uvc0_view1\":") + odd;
        EXPECT_EQ(savedOver(start + "}"), start + ",\"uvc0_view1\":" + now + "}");
    }
}

TEST_F(Presets, ADamagedFileIsOverwrittenWithNull) {
    for (const char* damaged :
         {"", " ", "{", "{\"uvc0_view1\":}", "{} x", "nul", "{'a':1}", "[1,]", "{\"a\":1e999}",
          "\xEF\xBB", "{\"a\":\"\\ud800\"}", "// {}", "{\"a\":01}"}) {
        EXPECT_EQ(savedOver(damaged), "null") << damaged;
    }
}

// The system wrote that itself: the next saving makes a file of it again.
TEST_F(Presets, ANullCountsAsEmpty) {
    EXPECT_EQ(savedOver("null"), "{\"uvc0_view1\":" + now + "}");
    EXPECT_EQ(savedOver(" null\n"), "{\"uvc0_view1\":" + now + "}");
}

TEST_F(Presets, WhatIsNoObjectIsLeftAlone) {
    for (const char* other :
         {"[]", "[{\"uvc0_view1\":{}}]", "1", "-1.5", "\"x\"", "true", "false"}) {
        expectLeftAlone(other);
    }
}

// Read as infinite, which no JSON can say: half of the file would be lost.
TEST_F(Presets, ANumberThatCannotBeWrittenAgainLeavesTheFileAlone) {
    expectLeftAlone(R"({"other":-21433333333333E300,"uvc0_view1":{}})");
    EXPECT_EQ(savedOver(R"({"other":-21433333333333E200})"),
              R"({"other":-2.1433333333333e213,"uvc0_view1":)" + now + "}");
}

TEST_F(Presets, ReadingStopsAtAZero) {
    EXPECT_EQ(savedOver(std::string("{\n}\0", 4)), "{\"uvc0_view1\":" + now + "}");
    EXPECT_EQ(savedOver(std::string("{}\0{\"a\":1}", 10)), "{\"uvc0_view1\":" + now + "}");
    EXPECT_EQ(savedOver(std::string("\0{}", 3)), "null");
}

TEST_F(Presets, AFileMustBeSmallerThanTheBuffer) {
    const auto padded = [](std::size_t size) { return "{}" + std::string(size - 2, ' '); };
    EXPECT_EQ(savedOver(padded(2047)), "{\"uvc0_view1\":" + now + "}");
    expectLeftAlone(padded(2048));
    expectLeftAlone(padded(2049));
    expectLeftAlone(padded(1 << 20));
    expectLeftAlone(std::string("{}\0", 3) + std::string(4000, 'x'));
    EXPECT_EQ(recalled(padded(4095), 2), Told{});
    for (const std::size_t size : {4096U, 4097U, 1U << 20}) {
        write(padded(size));
        EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->change_view(3), -1); }), "");
        EXPECT_EQ(bot->currentView, 2);
        EXPECT_EQ(read(), padded(size));
    }
}

TEST_F(Presets, ATreeOfBracketsIsNoDanger) {
    const std::string open(1023, '['), close(1023, ']');
    expectLeftAlone(open + close);
    EXPECT_EQ(savedOver("{\"a\":" + std::string(1000, '[') + std::string(1000, ']') + "}"),
              "{\"a\":" + std::string(1000, '[') + std::string(1000, ']') +
                  ",\"uvc0_view1\":" + now + "}");
    std::string objects;
    for (int i = 0; i < 300; ++i) {
        objects += "{\"a\":";
    }
    EXPECT_EQ(savedOver(objects + "1" + std::string(300, '}')),
              objects + "1" + std::string(299, '}') + ",\"uvc0_view1\":" + now + "}");
    EXPECT_EQ(savedOver(std::string(2047, '[')), "null");
    EXPECT_EQ(recalled(std::string(4095, '['), 4), Told{});
}

TEST_F(Presets, AFolderInTheFilesPlace) {
    ASSERT_EQ(mkdir(rig.presetPath.c_str(), 0700), 0);
    EXPECT_EQ(bot->save_view_data(), -1);
    EXPECT_EQ(bot->change_view(2), -1);
    EXPECT_EQ(bot->currentView, 1);
    ASSERT_EQ(rmdir(rig.presetPath.c_str()), 0);
}

TEST_F(Presets, APipeInTheFilesPlaceDoesNotBlock) {
    ASSERT_EQ(mkfifo(rig.presetPath.c_str(), 0600), 0);
    EXPECT_EQ(bot->save_view_data(), -1);
    EXPECT_EQ(bot->change_view(2), -1);
}

TEST_F(Presets, RecallingAppliesWhatDiffers) {
    EXPECT_EQ(recalled("{\"uvc0_view2\":" + sixOf("100 200 40 1 -3 4") + "}", 2),
              (Told{"pan_absolute=100", "tilt_absolute=200", "zoom_absolute=40", "auto_focus=1",
                    "pan_speed=-3", "tilt_speed=4"}));
    EXPECT_EQ(bot->controls[UVC_PAN_ABSOLUTE].value, 100);
    // What is there already is not sent.
    EXPECT_EQ(recalled("{\"uvc0_view5\":" + sixOf("100 201 40 0 -3 4") + "}", 5),
              (Told{"tilt_absolute=201", "auto_focus=0"}));
    // In this order, whatever that of the file.
    EXPECT_EQ(
        recalled("{\"uvc0_view6\":{\"tilt_speed\":9,\"zoom_absolute\":7,\"pan_absolute\":1}}", 6),
        (Told{"pan_absolute=1", "zoom_absolute=7", "tilt_speed=9"}));
}

TEST_F(Presets, RecallingSaysWhatItSets) {
    write("{\"uvc0_view2\":{\"pan_absolute\":1,\"zoom_absolute\":5}}");
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->change_view(2), 0); }),
              "set success\nset success\n");
}

TEST_F(Presets, RecallingSkipsWhatIsNoInteger) {
    EXPECT_EQ(recalled("{\"uvc0_view2\":{\"pan_absolute\":\"1\",\"tilt_absolute\":1.0,\"zoom_"
                       "absolute\":5000000000,\"auto_focus\":true,\"tilt_speed\":3}}",
                       2),
              Told{"tilt_speed=3"});
    EXPECT_EQ(recalled("{\"uvc0_view3\":{\"pan_absolute\":\"1\",\"pan_absolute\":5}}", 3), Told{});
    EXPECT_EQ(recalled("{\"uvc0_view2\":[1],\"uvc0_view2\":{\"pan_absolute\":8}}", 2), Told{});
}

TEST_F(Presets, RecallingAViewThatIsNotThere) {
    for (const char* content : {"{}", "null", "{\"uvc0_view1\":{\"pan_absolute\":1}}", "", "{",
                                "[]", "1", "{\"uvc0_view4\":null}"}) {
        bot->currentView = 1;
        EXPECT_EQ(recalled(content, 4), Told{}) << content;
        EXPECT_EQ(read(), content);
    }
}

TEST_F(Presets, TheCurrentViewIsNotRecalled) {
    write("{\"uvc0_view1\":" + sixOf("1 2 3 0 5 6") + "}");
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->change_view(1), -1); }), "same view no\n");
    EXPECT_TRUE(rig.told().empty());
    EXPECT_EQ(bot->currentView, 1);
}

TEST_F(Presets, WithoutAFileTheNumberChanges) {
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->change_view(4), -1); }), "no uvc_param file\n");
    EXPECT_EQ(bot->currentView, 4);
    EXPECT_FALSE(exists());
}

TEST_F(Presets, AFileThatCannotBeReadChangesNothing) {
    write("{}");
    rig.presetUnreadable = true;
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->change_view(4), -1); }), "");
    EXPECT_EQ(bot->currentView, 1);
}

TEST_F(Presets, NumbersBeyondTheViewsStandForTheFirst) {
    EXPECT_EQ(recalled("{\"uvc0_view1\":{\"pan_absolute\":77}}", 9), Told{"pan_absolute=77"});
    EXPECT_EQ(recalled("{\"uvc0_view1\":{\"pan_absolute\":78}}", 0), Told{"pan_absolute=78"});
}

TEST_F(Presets, RecallingWithoutATableSendsNothing) {
    rig.cameraGone = true;
    printedBy([this] { bot->queryControls(); });
    rig.cameraGone = false;
    write("{\"uvc0_view2\":{\"pan_absolute\":1}}");
    EXPECT_EQ(printedBy([this] { EXPECT_EQ(bot->change_view(2), 0); }), "can not get or set");
    EXPECT_TRUE(rig.told().empty());
}

TEST_F(Presets, AllSixFitAndComeBack) {
    for (int view = 1; view <= 6; ++view) {
        bot->currentView = view;
        for (int row = 0; row < 6; ++row) {
            bot->controls[static_cast<std::size_t>(row)].value = -2147483647 + 10 * view + row;
        }
        ASSERT_EQ(bot->save_view_data(), 0);
    }
    ASSERT_LT(read().size(), 2048U);
    for (char view = 1; view <= 6; ++view) {
        for (UvcControlEntry& row : bot->controls) {
            row.value = 0;
        }
        bot->currentView = 0;
        printedBy([&] { EXPECT_EQ(bot->change_view(view), 0); });
        for (int row = 0; row < 6; ++row) {
            EXPECT_EQ(bot->controls[static_cast<std::size_t>(row)].value,
                      -2147483647 + 10 * view + row);
        }
    }
}

}  // namespace
