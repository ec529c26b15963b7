// Every key and every order of two overlapping keys, against a second statement of the rules.
#include "control/camera/obsbot.h"
#include "tests/unit/camera/fakerig.h"
#include "tests/unit/task/waiting.h"

#include <map>
#include <sstream>

namespace {

using Told = std::vector<std::string>;

enum class Step { press, repeat, release };

struct Event {
    char key;
    Step step;
};
using Sequence = std::vector<Event>;

const std::map<char, int> keyCodes = {
    {'W', 17}, {'S', 31}, {'A', 30}, {'D', 32}, {'I', 23},
    {'O', 24}, {'R', 19}, {'T', 20}, {'L', 38}, {'X', 45},  // X does nothing
};

// A command of fourteen bytes, filled up to sixty.
std::string command60(const char* fourteen) {
    std::ostringstream command;
    command << "xu 2.2=" << fourteen;
    for (int i = 14; i < 60; ++i) {
        command << " 00";
    }
    command << ' ';
    return command.str();
}

// The rules, told from the user's side. Knows nothing of the code under test.
class Oracle {
  public:
    explicit Oracle(bool asleep) : asleep_(asleep) {}

    void take(const Event& event) {
        // A held key repeats without the scan code that makes an event count.
        if (event.step == Step::repeat || !listening_ || event.key == 'X') {
            return;
        }
        const bool same = event.key == last_;
        last_ = same ? '-' : event.key;
        if (std::string("WSADIO").find(event.key) != std::string::npos) {
            move(event.key, same);
        } else if (!same) {
            command(event.key);
        }
    }
    const Told& told() const { return told_; }
    bool listening() const { return listening_; }
    bool asleep() const { return asleep_; }

  private:
    void move(char key, bool stop) {
        static const std::map<char, std::pair<std::string, std::string>> motions = {
            {'W', {"tilt_speed=", "10"}},      {'S', {"tilt_speed=", "-10"}},
            {'A', {"pan_speed=", "-10"}},      {'D', {"pan_speed=", "10"}},
            {'I', {"zoom_continuous=", "10"}}, {'O', {"zoom_continuous=", "-10"}},
        };
        const auto& [control, speed] = motions.at(key);
        told_.push_back(control + (stop ? "0" : speed));
    }
    void command(char key) {
        if (key == 'R') {
            told_.insert(told_.end(), {"pan_absolute=0", "tilt_absolute=3600", "zoom_absolute=0"});
        } else if (key == 'T') {
            tracking_ = !tracking_;
            std::ostringstream state;
            state << "xu 2.3=0" << tracking_ << ' ';
            for (int i = 1; i < 60; ++i) {
                state << "0123456789ABCDEF"[i / 16] << "0123456789ABCDEF"[i % 16] << ' ';
            }
            told_.push_back(state.str());
        } else {
            told_.push_back(command60(asleep_ ? "AA 00 0E 12 00 33 34 D1 00 E1 13 C2 01 01"
                                              : "AA 00 0E 12 33 00 F4 E0 00 E1 13 C2 01 03"));
            asleep_ = !asleep_;
            listening_ = false;
        }
    }

    bool asleep_;
    bool listening_ = true;
    bool tracking_ = false;
    char last_ = '-';
    Told told_;
};

std::string nameOf(const Sequence& sequence) {
    std::string name;
    for (const Event& event : sequence) {
        name += event.key;
        name += event.step == Step::press ? "v" : event.step == Step::release ? "^" : "~";
    }
    return name;
}

// With the repeats of the key that was pressed last, as long as it is held.
Sequence held(const Sequence& sequence) {
    Sequence result;
    char repeating = '-';
    for (const Event& event : sequence) {
        result.push_back(event);
        if (event.step == Step::press) {
            repeating = event.key;
        } else if (event.key == repeating) {
            repeating = '-';
        }
        if (repeating != '-') {
            result.insert(result.end(), 2, Event{repeating, Step::repeat});
        }
    }
    return result;
}

std::vector<Sequence> sequences() {
    std::vector<Sequence> all;
    const auto add = [&all](const Sequence& sequence) {
        all.push_back(sequence);
        all.push_back(held(sequence));
    };
    for (const auto& [a, codeA] : keyCodes) {
        const Event down{a, Step::press}, up{a, Step::release};
        add({down});
        add({down, up});
        add({down, up, down, up});
        for (const auto& [b, codeB] : keyCodes) {
            if (a == b) {
                continue;
            }
            const Event otherDown{b, Step::press}, otherUp{b, Step::release};
            add({down, up, otherDown, otherUp});
            add({down, otherDown, up, otherUp});
            add({down, otherDown, otherUp, up});
            // The receiver was plugged in with a key held.
            add({up, otherDown, otherUp});
        }
    }
    return all;
}

void send(FakeRig& rig, const Event& event) {
    const int key = keyCodes.at(event.key);
    switch (event.step) {
        case Step::press:
            return rig.press(0, key);
        case Step::repeat:
            return rig.repeat(0, key);
        case Step::release:
            return rig.release(0, key);
    }
}

// Each from the beginning, with a task of its own.
void expectAsTheOracleSays(const Sequence& sequence, bool asleep) {
    ObsBot::dormantStatus = asleep ? 1 : 0;
    Oracle oracle(asleep);
    FakeRig rig;
    rig.plugReceiver(0);
    {
        ObsBot bot(cameraNode);
        ASSERT_TRUE(rig.waitOpened(1));
        if (asleep) {  // the table is empty: nothing knows where the middle is
            bot.initBrivUvcControl();
        }
        for (const Event& event : sequence) {
            oracle.take(event);
            send(rig, event);
        }
        if (oracle.listening()) {
            ASSERT_TRUE(rig.settle());
        } else {
            ASSERT_TRUE(comesTrue([&] { return rig.openDescriptors() == 0; }, deadline));
        }
    }
    EXPECT_EQ(rig.told(), oracle.told());
    EXPECT_EQ(ObsBot::dormantStatus == 1, oracle.asleep());
}

class Keys : public testing::TestWithParam<char> {};

// A test for each key that comes first.
TEST_P(Keys, InEveryOrderWithAnother) {
    testing::internal::CaptureStdout();
    unsigned count = 0;
    for (const Sequence& sequence : sequences()) {
        if (sequence.front().key == GetParam()) {
            SCOPED_TRACE(nameOf(sequence));
            ASSERT_NO_FATAL_FAILURE(expectAsTheOracleSays(sequence, false));
            ++count;
        }
    }
    testing::internal::GetCapturedStdout();
    ObsBot::dormantStatus = 0;
    EXPECT_EQ(count, 3 * 2 + 9 * 4 * 2U);
}

INSTANTIATE_TEST_SUITE_P(First, Keys,
                         testing::Values('W', 'S', 'A', 'D', 'I', 'O', 'R', 'T', 'L', 'X'),
                         [](const auto& info) { return std::string(1, info.param); });

}  // namespace
