// What all decoders have in common: a task that receives the camera's frames and shows them.
#pragma once

#include "control/task/receive_handler.h"
#include "control/task/taskbase.h"

#include <string>

class DecCommon : public TaskBase, public Receive_handler {
  public:
    // The decoder for a V4L2 four-character code; null when there is none. `captureMode` is the
    // decInfo of the stream: not owned, outlives the decoder. An empty name matches every row.
    // The caller owns the result.
    static DecCommon* find_decoder_dev(int fourcc, void* captureMode, int kind, std::string name);

    // Prepares the decoder and starts its threads; 1, or 0 on failure.
    virtual int decoder_open() = 0;
    // Releases what decoder_open made; 1 if it was open, else 0.
    virtual int decoder_close() = 0;
    // Shows one msgVideo, which stays the caller's; 0. On the decoder's own threads.
    virtual int decoder_process(void* msg, void* unused) = 0;

  protected:
    // The common shapes of svc(), close() and receive_handler(); derived classes give the texts.
    int runDecoder(const char* className);
    int stopDecoder(const char* closeText);
};
