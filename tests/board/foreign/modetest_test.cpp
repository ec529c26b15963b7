// libdrm's modetest on the board's display.

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <sstream>
#include <vector>

#include "board/daemon/scenario.h"
#include "tests/support/client.h"
#include "tests/support/lateness.h"
#include "tests/support/pattern.h"

namespace {

using support::Board;
using support::ClientResult;
using support::Milliseconds;

struct Ids {
    std::string connector, encoder, crtc;
};

// The first line of each table that begins with a number.
Ids findIds(Board& board) {
    const ClientResult result = runClient(board, {"modetest", "-M", "rockchip", "-c", "-p", "-e"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    Ids ids;
    std::string* wanted = nullptr;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        if (line == "Connectors:") {
            wanted = &ids.connector;
        } else if (line == "Encoders:") {
            wanted = &ids.encoder;
        } else if (line == "CRTCs:") {
            wanted = &ids.crtc;
        } else if (line == "Planes:") {
            wanted = nullptr;
        } else if (wanted != nullptr && wanted->empty() && !line.empty() &&
                   std::isdigit(static_cast<unsigned char>(line[0])) != 0) {
            *wanted = line.substr(0, line.find_first_not_of("0123456789"));
        }
    }
    return ids;
}

TEST(Modetest, ListsTheConnectorsModes) {
    Board board("default");
    const ClientResult result = runClient(board, {"modetest", "-M", "rockchip", "-c"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(support::Pattern("\tconnected\t").isIn(result.out)) << result.out;
    const board::DisplayDescription display =
        board::loadDisplay(board::findDisplay("synthetic-1080p60"));
    std::vector<std::string> listed, described;
    static const support::Pattern mode(
        R"(^\s+#(\d+) (\S+) [\d.]+ (\d+) (\d+) (\d+) (\d+) (\d+) (\d+) (\d+) (\d+) (\d+) )");
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> match = mode.search(line);
        if (!match.empty()) {
            std::string text = match[2];
            for (std::size_t field = 3; field <= 11; ++field) {
                text += " " + match[field];
            }
            listed.push_back(text);
        }
    }
    for (const board::DisplayMode& m : display.modes) {
        std::ostringstream text;
        text << m.name << " " << m.hdisplay << " " << m.hsyncStart << " " << m.hsyncEnd << " "
             << m.htotal << " " << m.vdisplay << " " << m.vsyncStart << " " << m.vsyncEnd << " "
             << m.vtotal << " " << m.clock_kHz;
        described.push_back(text.str());
    }
    EXPECT_EQ(listed, described) << result.out;
}

TEST(Modetest, UnpluggedDisplayIsDisconnected) {
    Board board("default");
    board.unplug("display");
    const ClientResult result = runClient(board, {"modetest", "-M", "rockchip", "-c"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(support::Pattern("\tdisconnected\t").isIn(result.out)) << result.out;
}

struct Flip {
    const char* mode;  // as modetest takes it
    const char* format;
    double refresh_Hz;  // clock / (htotal * vtotal)
};

void PrintTo(const Flip& one, std::ostream* out) {
    *out << one.mode << " " << one.format;
}

class ModetestFlips : public testing::TestWithParam<Flip> {};

TEST_P(ModetestFlips, RunAtTheModesRate) {
    Board board("default");
    const Ids ids = findIds(board);
    const std::string setting =
        ids.connector + "@" + ids.crtc + ":" + GetParam().mode + "@" + GetParam().format;
    // It ends when its standard input does.
    const auto program =
        startClient(board, {"modetest", "-M", "rockchip", "-v", "-s", setting}, true);
    // The first report covers the start. Of the others the median counts: a second in which the
    // machine was busy is off, a wrong rate is wrong in all of them.
    const double expected = GetParam().refresh_Hz;
    const support::LatenessProbe probe;
    std::vector<double> reports;
    std::size_t next = 0;
    for (int report = 0; report < 4; ++report) {
        const auto index =
            program->err().waitForMatch(R"(^freq: [\d.]+Hz)", Milliseconds(10000), next);
        ASSERT_TRUE(index.has_value()) << program->out().text() << program->err().text();
        next = *index + 1;
        if (report > 0) {
            reports.push_back(std::stod(program->err().all().at(*index).substr(6)));
        }
    }
    std::nth_element(reports.begin(), reports.begin() + 1, reports.end());
    const double away = probe.away();
    EXPECT_EQ(board.display().mode.rfind(std::string(GetParam().mode).substr(0, 8), 0), 0u)
        << board.display().mode;
    program->closeInput();
    EXPECT_EQ(program->waitForEnd(Milliseconds(10000)).value_or(-1), 0) << program->err().text();
    if (reports[1] < expected && away >= support::unusableAway) {
        GTEST_SKIP() << support::notJudged(away);
    }
    EXPECT_NEAR(reports[1], expected, expected / 100) << program->err().text();
}

INSTANTIATE_TEST_SUITE_P(Formats, ModetestFlips,
                         testing::Values(Flip{"1920x1080-60", "NV12", 60},
                                         Flip{"1920x1080-60", "XR24", 60},
                                         Flip{"1280x720-50", "NV12", 50}),
                         [](const auto& info) {
                             return std::string(info.param.format) + "_" +
                                    std::to_string(info.index);
                         });

}  // namespace
