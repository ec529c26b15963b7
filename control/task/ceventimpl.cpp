#include "control/task/ceventimpl.h"

CEventImpl::CEventImpl() : event(std::make_unique<MyEvent>(true, false)) {
    event->CreateEvent();
}

CEventImpl::~CEventImpl() {
    event->Reset();
}

bool CEventImpl::set_event() {
    return event->Set();
}

bool CEventImpl::reset_event() {
    return event->Reset();
}

bool CEventImpl::wait_for_single_object(int timeout_ms) {
    return event->Wait(timeout_ms);
}
