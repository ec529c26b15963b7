// What a stage that accepts messages offers to the stage before it.
#pragma once

class Receive_handler {
  public:
    // Takes ownership of the message; 1. The second argument is always 0.
    virtual int receive_handler(void* msg, unsigned int arg) = 0;
    // Whether one more message is welcome now; a producer that hears no drops its frame.
    virtual bool queueAllow_angler() = 0;

  protected:
    // Stages are deleted through their own class, never through this one.
    ~Receive_handler() = default;
};
