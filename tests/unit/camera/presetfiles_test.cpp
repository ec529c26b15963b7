// Preset files that nobody would write: random changes of files that somebody would.
#include "tests/unit/camera/presetfixture.h"

#include <rapidjson/document.h>
#include <sys/mman.h>

#include <random>

namespace {

const std::vector<std::string> seeds = {
    "{}",
    std::string("{\n}\0", 4),
    "null",
    "[]",
    "{\"uvc0_view1\":{\"pan_absolute\":0,\"tilt_absolute\":0,\"zoom_absolute\":0,\"auto_focus\":1,"
    "\"pan_speed\":0,\"tilt_speed\":0}}",
    "{\"uvc0_view2\":{\"zoom_absolute\":\"5\",\"pan_absolute\":2147483648,\"tilt_absolute\":-1.5e3}"
    ","
    "\"uvc0_view1\":null,\"x\":[1,2,{\"a\":true}]}",
    "{\"uvc0_view1\":{\"pan_absolute\":1,\"pan_absolute\":2},\"uvc0_view1\":{}}",
};

class Mutator {
  public:
    explicit Mutator(unsigned seed) : random_(seed) {}

    std::string next() {
        std::string text = seeds[below(seeds.size())];
        for (std::size_t i = below(8); i > 0; --i) {
            change(text);
        }
        return text;
    }
    std::size_t below(std::size_t limit) { return random_() % limit; }

  private:
    void change(std::string& text) {
        static const char* const pieces[] = {"{",
                                             "}",
                                             "[",
                                             "]",
                                             ",",
                                             ":",
                                             "\"",
                                             "null",
                                             "\\u0000",
                                             "1e308",
                                             "-0",
                                             "\x80",
                                             "99999999999999999999",
                                             "0.1",
                                             "\\",
                                             "\"uvc0_view1\":",
                                             "\"uvc0_view3\":{",
                                             "\"pan_absolute\":",
                                             "\xF0\x9F\x98\x80",
                                             " ",
                                             "\n"};
        const std::size_t place = below(text.size() + 1);
        switch (below(6)) {
            case 0:
                text.erase(place, below(10));
                break;
            case 1:
                text.insert(place, pieces[below(std::size(pieces))]);
                break;
            case 2:
                text.insert(place, 1, static_cast<char>(below(256)));
                break;
            case 3:
                text.insert(place, text.substr(below(text.size() + 1), below(64)));
                break;
            case 4:
                text.insert(place, below(5000), '[');
                break;
            default:
                if (place < text.size()) {
                    text[place] = static_cast<char>(text[place] ^ (1 << below(8)));
                }
        }
    }

    std::mt19937 random_;
};

class PresetFiles : public PresetFixture {
  protected:
    // In memory: a disk would wait for each of the many files.
    void SetUp() override {
        PresetFixture::SetUp();
        memory.reset(memfd_create("presets", MFD_CLOEXEC));
        rig.presetPath = "/proc/self/fd/" + std::to_string(memory.get());
    }
    // Saving keeps a file, or makes one of it that holds the view, or null of one that is damaged.
    void save(const std::string& content) {
        const int result = bot->save_view_data();
        const std::string after = read();
        if (result == -1) {
            EXPECT_EQ(after, content);
            return;
        }
        EXPECT_EQ(result, 0);
        EXPECT_LT(content.size(), 2048U);
        rapidjson::Document before;
        before.Parse(content.c_str());
        if (before.HasParseError()) {
            EXPECT_EQ(after, "null");
            return;
        }
        EXPECT_TRUE(before.IsObject() || before.IsNull());
        rapidjson::Document document;
        document.Parse(after.c_str(), after.size());
        ASSERT_TRUE(document.IsObject());
        bool found = false;  // the first object of the name, or the one that was added
        for (const auto& member : document.GetObject()) {
            found = found || (member.name == "uvc0_view1" && member.value.IsObject());
        }
        EXPECT_TRUE(found);
    }
    // Recalling sends numbers of the file at most, and never changes it.
    void recall(const std::string& content, char view) {
        const std::size_t before = rig.told().size();
        const int result = bot->change_view(view);
        EXPECT_EQ(result, content.size() < 4096 ? 0 : -1);
        EXPECT_EQ(read(), content);
        EXPECT_LE(rig.told().size(), before + 6);
        rapidjson::Document document;
        document.Parse(content.c_str());
        if (document.HasParseError()) {
            EXPECT_EQ(rig.told().size(), before);
        }
    }

    UniqueFd memory;
};

TEST_F(PresetFiles, AreNeverADanger) {
    testing::internal::CaptureStdout();
    Mutator mutator(20);
    const unsigned files = support::longRun() ? 200000 : 3000;
    for (unsigned i = 0; i < files && !HasFailure(); ++i) {
        const std::string content = mutator.next();
        SCOPED_TRACE("file " + std::to_string(i) + ": " + content);
        write(content);
        bot->currentView = 0;
        recall(content, static_cast<char>(1 + mutator.below(6)));
        write(content);
        bot->currentView = 1;
        save(content);
    }
    testing::internal::GetCapturedStdout();
}

}  // namespace
