// An HTTP client that is no browser: it sends what a test writes, byte for byte.
#pragma once

#include "tests/support/environment.h"

#include <map>
#include <string>

namespace support {

struct HttpAnswer {
    int status = 0;                              // 0: none came
    std::map<std::string, std::string> headers;  // names in small letters
    std::string body;
};

class HttpConnection {
  public:
    // Throws std::runtime_error when nobody listens on that port of this machine.
    explicit HttpConnection(unsigned short port);
    ~HttpConnection();
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    // False when the other side has closed or takes nothing for `patience` (scaled).
    bool send(const std::string& bytes, Milliseconds patience = Milliseconds(5000));
    // Up to and with `mark`; what came until the end or the deadline (scaled) where it does not
    // come.
    std::string readUntil(const std::string& mark, Milliseconds patience = Milliseconds(5000));
    std::string read(std::size_t bytes, Milliseconds patience = Milliseconds(5000));
    // Head and body to the end of the connection.
    HttpAnswer readAnswer(Milliseconds patience = Milliseconds(15000));
    // The head alone: of a stream without an end.
    HttpAnswer readHead(Milliseconds patience = Milliseconds(5000));
    // Whether the other side closes within `patience` (scaled); what it sends until then is lost.
    bool waitForClose(Milliseconds patience);

  private:
    bool more(Clock::time_point deadline);

    int socket_;
    std::string received_;
};

// A request of the console's own page.
std::string getRequest(unsigned short port, const std::string& path,
                       const std::string& headers = "");
HttpAnswer httpGet(unsigned short port, const std::string& path, const std::string& headers = "");
HttpAnswer httpPost(unsigned short port, const std::string& path, const std::string& json);

// One part of a multipart stream whose head or last boundary was read; its body is empty at the
// end.
HttpAnswer readPart(HttpConnection& stream, Milliseconds patience = Milliseconds(5000));

}  // namespace support
