#include "control/task/msgaudio.h"

msgAudio::~msgAudio() {
    for (unsigned char*& plane : data) {
        delete[] plane;
        plane = nullptr;
    }
}
