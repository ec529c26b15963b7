// The event of a message queue: manual reset, not set at first.
#pragma once

#include "control/task/myevent.h"

#include <memory>

class CEventImpl {
  public:
    CEventImpl();
    virtual ~CEventImpl();
    CEventImpl(const CEventImpl&) = delete;
    CEventImpl& operator=(const CEventImpl&) = delete;

    // The results are those of MyEvent::Set, Reset and Wait.
    virtual bool set_event();
    virtual bool reset_event();
    virtual bool wait_for_single_object(int timeout_ms);

  private:
    std::unique_ptr<MyEvent> event;
};
