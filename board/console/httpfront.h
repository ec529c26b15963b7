// What the console answers to HTTP requests.
#pragma once

#include "board/console/bulletin.h"
#include "board/console/guardedstream.h"
#include "board/console/liveviews.h"
#include "board/console/orderclient.h"
#include "board/console/ordergate.h"
#include "board/console/pagefiles.h"
#include "board/console/requestguard.h"

#include <httplib.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace board::console {

// What is behind the front; all of it is thread-safe and outlives the front.
struct ConsoleRooms {
    const PageFiles& page;
    const OrderClient& orders;
    const OrderGate& gate;
    Bulletin& bulletin;
    LiveViews& views;
    std::string logLines;  // /log-lines.json
    std::string folder;    // for pictures on their way; the board can write there
};

// The library's own listening is not used: it takes a thread for each connection, reads bodies and
// heads of any length and waits for them without an end. Here it reads a request that has come
// whole (see Reception) and writes the answer, one a connection.
class HttpFront : private httplib::Server {
  public:
    HttpFront(const ConsoleRooms& rooms, unsigned short port,
              const StreamLimits& limits = StreamLimits());

    // One request, answered; streams last until the viewer leaves or `endStreams` is called. Any
    // thread; never throws.
    void serve(int socket, std::string received);
    void endStreams();

  private:
    using Answer = void (HttpFront::*)(const httplib::Request&, httplib::Response&);

    HandlerResponse route(const httplib::Request& request, httplib::Response& response);
    // 0, or the status of the refusal.
    int judge(const httplib::Request& request, std::string& error) const;
    void answerOrder(const httplib::Request& request, httplib::Response& response);
    void sendHealth(const httplib::Request& request, httplib::Response& response);
    void sendLogLines(const httplib::Request& request, httplib::Response& response);
    void sendCatalogue(const httplib::Request& request, httplib::Response& response);
    void sendSession(const httplib::Request& request, httplib::Response& response);
    void sendScreenPicture(const httplib::Request& request, httplib::Response& response);
    void streamEvents(const httplib::Request& request, httplib::Response& response);
    void streamScreen(const httplib::Request& request, httplib::Response& response);
    void streamCamera(const httplib::Request& request, httplib::Response& response);
    void streamSound(const httplib::Request& request, httplib::Response& response);
    void streamPictures(PictureChannel& channel, httplib::Response& response);
    // A place among the streaming clients until it is released; null, and 503, when all are taken.
    std::shared_ptr<void> takePlace(httplib::Response& response);

    ConsoleRooms rooms_;
    StreamLimits limits_;
    RequestGuard guard_;
    std::map<std::string, Answer> answers_;  // of GET, by path
    std::atomic<int> streams_{0};
    std::mutex picture_;
};

}  // namespace board::console
