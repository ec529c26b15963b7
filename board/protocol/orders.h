// The words of the order socket: one JSON object a line in, {"order": NAME, FIELD: VALUE...}, one
// JSON object a line out, {"ok": true, ...} or {"ok": false, "error": "one line"}.
#pragma once

namespace board::wire {

struct OrderWord {
    const char* name;
    // Names of the fields, in the order of a command line. "[field]" may be left out; "#" marks a
    // number, "@" a path, "%" a name or a path.
    const char* fields;
    const char* help;
    bool changes = true;  // something of the board: such an order is part of a session
};

// clang-format off
constexpr OrderWord orderWords[] = {
    {"plug", "device [%description]", "plug in camera, display, microphone, output or an input device; description: another one, by name or path"},
    {"unplug", "device", "unplug camera, display, microphone, output or an input device"},
    {"stall", "device", "the camera takes buffers and delivers nothing; the clock of a sound card stands still"},
    {"resume", "device", "what was stalled or suspended goes on"},
    {"recording", "%name", "what the camera shows from the next stream-on: a media file or field:red, field:bars, ..."},
    {"payload", "#bytes #count", "the next COUNT frames carry BYTES bytes"},
    {"payload-fault", "kind #count [#seed]", "the next COUNT payloads are damaged: truncate, flip-bits, no-huffman, bytes-before, ..."},
    {"payload-mix", "#permille [#seed]", "PERMILLE of a thousand payloads are damaged from now on, each in some way (0: none)"},
    {"payloads", "action [@path]", "start PATH: copy what the camera delivers to a file; stop: finish the file", false},
    {"encoded-size", "#width #height", "the pictures in the running H264 stream get this size, the format stays"},
    {"press", "key [device]", "a key (W, KEY_W, 17) of the remote goes down; device: another input device"},
    {"release", "key [device]", "the key goes up"},
    {"hold", "key #ms [device]", "the key goes down, and up MS milliseconds later"},
    {"inputs", "[device]", "the input devices: node, keys down, LEDs; of one: what clients wrote", false},
    {"ptz", "", "where the camera looks, how fast it moves, whether it sleeps or tracks", false},
    {"told", "[#from]", "everything the camera was told, with times; from: only number FROM and later", false},
    {"modes", "%description", "the display becomes another one at once, by name or path"},
    {"flips", "action", "hold: page flips stay pending; go: they complete again"},
    {"lose-flip", "", "the next page flip completes, but its event never comes"},
    {"picture", "@path", "what is on screen, to a PNG file", false},
    {"record", "action [@path]", "start PATH: record the screen to an MP4 file; stop: finish the file", false},
    {"frames", "@folder #count", "exact copies of the next COUNT scanned-out pictures, to a folder", false},
    {"clock-error", "device #ppm", "the clock of microphone or output runs PPM millionths too fast"},
    {"xrun", "device", "running streams of microphone or output have an under-run or over-run now"},
    {"suspend", "device [action]", "hold: microphone or output sleeps until resumed; brief: it slept, clients resume it"},
    {"grant", "device #rate #period", "from the next opening on the card has this rate and period only; 0: as described"},
    {"open-fails", "device #errno [#count]", "the next COUNT openings of the stream fail (1; 0: all); ERRNO 0: none any more"},
    {"hear", "%name", "what the microphone hears: a media file, sweep, tone:1000, clicks, noise, ramp, silence"},
    {"record-sound", "action [@path]", "start PATH: record what the output plays to a WAV file; stop: finish the file", false},
    {"figures", "", "what camera, display and sound cards counted, open handles per node", false},
    {"figures-reset", "", "the display's figures start again at zero", false},
    {"fail", "ioctl #nth #errno [#count]", "the NTH call of an ioctl from now on fails, and COUNT-1 more (1; 0: all)"},
    {"faults-clear", "", "no ioctl fails on order any more"},
    {"park", "call [thread]", "calls stay in their wait; call: a libc name or an ioctl's; thread: only that one's"},
    {"unpark", "#index", "lift a park, or all of them (INDEX all)"},
    {"parks", "", "the parks and how many calls each has held", false},
    {"clock-step", "#ms", "step the wall clock by MS milliseconds, also backwards"},
    {"leak-check", "", "the clients' leak check, where they have one", false},
    {"coverage", "", "the clients write their coverage data, where they have any", false},
    {"state", "", "scenario, nodes, plugs, mode, clients", false},
    {"catalogue", "", "which cameras, displays, sound cards and input devices there are to plug in", false},
    {"session", "[@path]", "the run so far as a scenario: its start and every order that changed something; path: into that file", false},
    {"quit", "", "end the board", false},
};
// clang-format on

}  // namespace board::wire
