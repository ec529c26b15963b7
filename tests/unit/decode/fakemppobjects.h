// What the played decoder library is made of.
#pragma once

#include "tests/unit/decode/fakempp.h"

namespace played {

struct Buffer {
    std::vector<unsigned char> memory;
    int references = 1;
};

struct Packet {
    unsigned char* data = nullptr;
    std::size_t size = 0;
    unsigned char* pos = nullptr;
    std::size_t length = 0;
    Buffer* buffer = nullptr;
};

struct Frame {
    FakePicture picture;
    Buffer* buffer = nullptr;
};

struct Task {
    Packet* packet = nullptr;
    Frame* frame = nullptr;
};

struct Context {
    Task task;
    enum class At { input, hardware, output } at = At::input;
    unsigned char firstByte = 0;
    Frame finished;  // what comes out when the program's frame is not to be used
};

// What stands behind the library's functions. The lock is held where there is no locked() in it.
struct FakeCalls {
    static std::unique_lock<std::mutex> locked();
    // Notes a call; its result when it is to fail. The lock is held.
    static std::optional<MPP_RET> note(const std::string& call);
    static void count(const char* kind, int change);
    static Buffer* makeBuffer(std::size_t size);
    static void release(Buffer* buffer);
    static void paint(Frame& frame);
    // The decoder's work on one task; the lock is held.
    static void decode(Context& context);
    // Whether the port has a task; lets a held one out when the test said so. The lock is held.
    static bool hasTask(Context& context, MppPortType port);
    static MPP_RET poll(Context& context, MppPortType port, int timeout);
    static MPP_RET dequeue(Context& context, MppPortType port, MppTask* task);
    static MPP_RET enqueue(Context& context, MppPortType port);
    static MPP_RET put(const Packet& packet);
    static MPP_RET get(MppFrame* frame);
    static MPP_RET control(MpiCmd command, MppParam parameter);
    static MppFrame outputOf(const Task& task);
    static void setEnvironment(const char* name, RK_U32 value);
    static void noteBufferSize(std::size_t size);
    static void setLimit(std::size_t size, int buffers);
};

}  // namespace played
