#include "board/daemon/remote/keytable.h"

#include "board/daemon/jsonreader.h"

#include <linux/input.h>

namespace board {

namespace {

constexpr std::int32_t keyboardPage = 0x70000;

struct Key {
    const char* name;
    std::uint16_t code;
    std::uint16_t usage;  // on the keyboard page
};

#define KEY(name, usage) \
    { "KEY_" #name, KEY_##name, usage }

// clang-format off
constexpr Key keys[] = {
    KEY(A, 0x04), KEY(B, 0x05), KEY(C, 0x06), KEY(D, 0x07), KEY(E, 0x08), KEY(F, 0x09),
    KEY(G, 0x0a), KEY(H, 0x0b), KEY(I, 0x0c), KEY(J, 0x0d), KEY(K, 0x0e), KEY(L, 0x0f),
    KEY(M, 0x10), KEY(N, 0x11), KEY(O, 0x12), KEY(P, 0x13), KEY(Q, 0x14), KEY(R, 0x15),
    KEY(S, 0x16), KEY(T, 0x17), KEY(U, 0x18), KEY(V, 0x19), KEY(W, 0x1a), KEY(X, 0x1b),
    KEY(Y, 0x1c), KEY(Z, 0x1d), KEY(1, 0x1e), KEY(2, 0x1f), KEY(3, 0x20), KEY(4, 0x21),
    KEY(5, 0x22), KEY(6, 0x23), KEY(7, 0x24), KEY(8, 0x25), KEY(9, 0x26), KEY(0, 0x27),
    KEY(ENTER, 0x28), KEY(ESC, 0x29), KEY(BACKSPACE, 0x2a), KEY(TAB, 0x2b), KEY(SPACE, 0x2c),
    KEY(MINUS, 0x2d), KEY(EQUAL, 0x2e), KEY(LEFTBRACE, 0x2f), KEY(RIGHTBRACE, 0x30),
    KEY(BACKSLASH, 0x31), KEY(SEMICOLON, 0x33), KEY(APOSTROPHE, 0x34), KEY(GRAVE, 0x35),
    KEY(COMMA, 0x36), KEY(DOT, 0x37), KEY(SLASH, 0x38), KEY(CAPSLOCK, 0x39),
    KEY(F1, 0x3a), KEY(F2, 0x3b), KEY(F3, 0x3c), KEY(F4, 0x3d), KEY(F5, 0x3e), KEY(F6, 0x3f),
    KEY(F7, 0x40), KEY(F8, 0x41), KEY(F9, 0x42), KEY(F10, 0x43), KEY(F11, 0x44), KEY(F12, 0x45),
    KEY(SYSRQ, 0x46), KEY(SCROLLLOCK, 0x47), KEY(PAUSE, 0x48), KEY(INSERT, 0x49),
    KEY(HOME, 0x4a), KEY(PAGEUP, 0x4b), KEY(DELETE, 0x4c), KEY(END, 0x4d), KEY(PAGEDOWN, 0x4e),
    KEY(RIGHT, 0x4f), KEY(LEFT, 0x50), KEY(DOWN, 0x51), KEY(UP, 0x52), KEY(NUMLOCK, 0x53),
    KEY(KPSLASH, 0x54), KEY(KPASTERISK, 0x55), KEY(KPMINUS, 0x56), KEY(KPPLUS, 0x57),
    KEY(KPENTER, 0x58), KEY(KP1, 0x59), KEY(KP2, 0x5a), KEY(KP3, 0x5b), KEY(KP4, 0x5c),
    KEY(KP5, 0x5d), KEY(KP6, 0x5e), KEY(KP7, 0x5f), KEY(KP8, 0x60), KEY(KP9, 0x61),
    KEY(KP0, 0x62), KEY(KPDOT, 0x63), KEY(102ND, 0x64), KEY(COMPOSE, 0x65), KEY(POWER, 0x66),
    KEY(LEFTCTRL, 0xe0), KEY(LEFTSHIFT, 0xe1), KEY(LEFTALT, 0xe2), KEY(LEFTMETA, 0xe3),
    KEY(RIGHTCTRL, 0xe4), KEY(RIGHTSHIFT, 0xe5), KEY(RIGHTALT, 0xe6), KEY(RIGHTMETA, 0xe7),
};
// clang-format on

#undef KEY

}  // namespace

std::optional<std::uint16_t> keyNamed(const std::string& name) {
    for (const Key& key : keys)
        if (name == key.name || "KEY_" + name == key.name)
            return key.code;
    std::int64_t number = 0;
    // A digit alone names its key; longer numbers are codes.
    if (parseInteger(name, number) && number > KEY_RESERVED && number < KEY_CNT)
        return std::uint16_t(number);
    return std::nullopt;
}

std::string keyName(std::uint16_t key) {
    for (const Key& known : keys)
        if (known.code == key)
            return known.name;
    return std::to_string(key);
}

std::vector<std::uint16_t> keyboardKeys() {
    std::vector<std::uint16_t> all;
    for (const Key& key : keys)
        all.push_back(key.code);
    return all;
}

std::int32_t scanValue(std::uint16_t key) {
    for (const Key& known : keys)
        if (known.code == key)
            return keyboardPage + known.usage;
    return 0;
}

}  // namespace board
