// What of the page's orders reaches the board.

#include "board/console/ordergate.h"

#include "board/daemon/orderwords.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using board::console::OrderGate;
using board::console::OrderRefused;

OrderGate gate() {
    return OrderGate([] { return std::set<std::string>{"synthetic-mjpeg", "remote"}; });
}

// The composed line without its end; "refused" in its place.
std::string composed(const std::string& body) {
    try {
        const std::string line = gate().compose(body);
        EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
        return line.substr(0, line.size() - 1);
    } catch (const OrderRefused& error) {
        EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
        return "refused";
    }
}

// A value that fits a field of this kind.
std::string fitting(const std::string& word, const board::OrderField& field) {
    if (field.kind == '#')
        return "1";
    if (field.kind == '%')
        return word == "hear" ? "\"sweep\"" : word == "recording" ? "\"field:red\"" : "\"remote\"";
    return "\"x\"";
}

std::string orderOf(const board::wire::OrderWord& word, bool withPaths) {
    std::string body = std::string("{\"order\": \"") + word.name + "\"";
    for (const board::OrderField& field : board::orderFields(word))
        if (field.kind != '@' || withPaths)
            body += ", \"" + field.name + "\": " + fitting(word.name, field);
    return body + "}";
}

TEST(OrderGate, LetsEveryOrderPassThatTouchesNoFile) {
    const std::set<std::string> refused = {"payloads",     "picture",    "record",
                                           "frames",       "session",    "quit",
                                           "record-sound", "leak-check", "coverage"};
    unsigned passed = 0;
    for (const board::wire::OrderWord& word : board::wire::orderWords) {
        const bool pass = refused.count(word.name) == 0;
        EXPECT_EQ(OrderGate::allows(word.name), pass) << word.name;
        // Composed from the same fields in the same sequence, so nothing of it was lost.
        EXPECT_EQ(composed(orderOf(word, false)), pass ? orderOf(word, false) : "refused");
        passed += pass ? 1 : 0;
        for (const board::OrderField& field : board::orderFields(word))
            EXPECT_FALSE(pass && field.kind == '@') << word.name << " takes a path";
    }
    EXPECT_GT(passed, 25u);
}

TEST(OrderGate, RefusesPathsInEveryField) {
    const char* paths[] = {"/etc/passwd", "../x",  "..",        "a/b",   "./x",       "x\\\\y",
                           "a\\u0000b",   "a\\nb", "a\\u001bb", "a b",   "",          "$(reboot)",
                           "`x`",         "x;y",   "x|y",       "x\\\"", "%2e%2e%2f", ".hidden"};
    for (const std::string path : paths) {
        const std::string text = "\"" + path + "\"";
        EXPECT_EQ(composed("{\"order\": \"plug\", \"device\": " + text + "}"), "refused") << path;
        EXPECT_EQ(composed("{\"order\": \"plug\", \"device\": \"camera\", \"description\": " +
                           text + "}"),
                  "refused")
            << path;
        EXPECT_EQ(composed("{\"order\": \"hear\", \"name\": " + text + "}"), "refused") << path;
        EXPECT_EQ(composed("{\"order\": \"recording\", \"name\": " + text + "}"), "refused")
            << path;
        EXPECT_EQ(composed("{\"order\": \"press\", \"key\": " + text + "}"), "refused") << path;
        EXPECT_EQ(composed("{\"order\": \"fail\", \"ioctl\": \"X\", \"nth\": 1, \"errno\": " +
                           text + "}"),
                  "refused")
            << path;
        EXPECT_EQ(composed("{\"order\": " + text + "}"), "refused") << path;
    }
}

TEST(OrderGate, RefusesTextsThatAreTooLong) {
    const auto press = [](std::size_t length) {
        return composed("{\"order\": \"press\", \"key\": \"" + std::string(length, 'W') + "\"}");
    };
    EXPECT_NE(press(128), "refused");
    EXPECT_EQ(press(129), "refused");
}

TEST(OrderGate, TakesDescriptionsFromTheCatalogueOnly) {
    const auto plug = [](const std::string& name) {
        return "{\"order\": \"plug\", \"device\": \"camera\", \"description\": \"" + name + "\"}";
    };
    EXPECT_EQ(composed(plug("synthetic-mjpeg")), plug("synthetic-mjpeg"));
    EXPECT_EQ(composed(plug("synthetic-mjpe")), "refused");
    EXPECT_EQ(composed(plug("synthetic-mjpeg.json")), "refused");
    EXPECT_EQ(composed(plug("sweep")), "refused");
    const auto hear = [](const std::string& name) {
        return "{\"order\": \"hear\", \"name\": \"" + name + "\"}";
    };
    EXPECT_EQ(composed(hear("tone:1000")), hear("tone:1000"));
    for (const char* name : {"tone:", "tone:1e3", "tone:9999999", "remote", "field:red"})
        EXPECT_EQ(composed(hear(name)), "refused") << name;
}

TEST(OrderGate, TakesWholeNumbersOnly) {
    const auto payload = [](const std::string& number) {
        return "{\"order\": \"payload\", \"bytes\": " + number + ", \"count\": 1}";
    };
    for (const std::string good : {"0", "-1", "9223372036854775807"})
        EXPECT_EQ(composed(payload(good)), payload(good));
    for (const std::string bad :
         {"9223372036854775808", "1e400", "1e3", "0.5", "true", "null", "[1]", "{\"a\": 1}", "01",
          "-99999999999999999999999999", "\"/1\"", "NaN"})
        EXPECT_EQ(composed(payload(bad)), "refused") << bad;
}

TEST(OrderGate, RefusesWhatIsNoOrder) {
    const std::string nested = std::string(2000, '[') + std::string(2000, ']');
    const std::string deep = "{\"order\": " + nested + "}";
    for (const std::string& body :
         std::vector<std::string>{"",
                                  " ",
                                  "null",
                                  "[]",
                                  "\"state\"",
                                  "{}",
                                  "{\"order\": 1}",
                                  "{\"order\": null}",
                                  "{\"order\": [\"state\"]}",
                                  "{\"order\": {\"order\": \"state\"}}",
                                  "{\"order\": \"state\"",
                                  "{\"order\": \"state\"} {\"order\": \"quit\"}",
                                  "{\"order\": \"state\"}\n{\"order\": \"quit\"}",
                                  "{\"order\": \"state\", \"order\": \"quit\"}",
                                  "{\"order\": \"state\", \"order\": \"state\"}",
                                  "{\"order\": \"state\", \"extra\": 1}",
                                  "{\"order\": \"state\", \"\\u0000\": 1}",
                                  "{\"order\": \"press\"}",
                                  "{\"order\": \"press\", \"key\": \"W\", \"key\": \"W\"}",
                                  "{\"order\": \"press\", \"key\": 17}",
                                  "{\"order\": \"press\", \"key\": \"\xff\"}",
                                  "{\"order\": \"State\"}",
                                  "{\"Order\": \"state\"}",
                                  "{\"order\": \"state\\u0000\"}",
                                  nested,
                                  deep,
                                  std::string(4096, '{'),
                                  std::string("{\"order\": \"state\"\0}", 19)})
        EXPECT_EQ(composed(body), "refused") << body;
    EXPECT_EQ(composed(" {\"order\" :\"state\"} "), "{\"order\": \"state\"}");
}

// Whatever comes in: what goes out is one of the allowed orders, in plain characters, on one line.
TEST(OrderGate, NothingElseComesOutWhateverComesIn) {
    const std::string pieces[] = {
        "{",          "}",        "\"order\"", ":",        ",",        "\"plug\"",    "\"device\"",
        "\"camera\"", "\"quit\"", "\"press\"", "\"key\"",  "\"W\"",    "1",           "\"/etc\"",
        "\\",         "\n",       "\xc3",      "[",        "]",        "\"picture\"", "\"path\"",
        "\"state\"",  "null",     "\"hear\"",  "\"name\"", "\"sweep\""};
    std::mt19937 random(7);
    unsigned passed = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string body = round % 2 == 0 ? "{\"order\":" : "";
        for (unsigned length = random() % 10; length > 0; --length)
            body += random() % 8 == 0 ? std::string(1, char(random()))
                                      : pieces[random() % std::size(pieces)];
        if (round % 2 == 0)
            body += "}";
        const std::string line = composed(body);
        if (line == "refused")
            continue;
        ++passed;
        rapidjson::Document order;
        ASSERT_FALSE(order.Parse(line.c_str()).HasParseError()) << line;
        EXPECT_TRUE(OrderGate::allows(order["order"].GetString())) << line;
        EXPECT_EQ(line.find_first_of("/\\\n\r"), std::string::npos) << line;
    }
    EXPECT_GT(passed, 20u);
}

}  // namespace
