#include "board/console/httpfront.h"

#include "board/console/livepart.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

namespace board::console {

namespace {

constexpr int mostStreams = 32;
constexpr std::size_t mostBody = 4096;
constexpr auto streamPatience = std::chrono::milliseconds(500);
constexpr char json[] = "application/json";

const httplib::Headers everyAnswer = {
    {"Content-Security-Policy", "default-src 'self'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Cache-Control", "no-store"},
    {"Referrer-Policy", "no-referrer"},
    {"X-Frame-Options", "DENY"},
};

void refuse(httplib::Response& response, int status, const std::string& error) {
    response.status = status;
    response.set_content(refusal(error) + "\n", json);
}

std::vector<std::string> valuesOf(const httplib::Request& request, const char* header) {
    std::vector<std::string> values;
    const auto range = request.headers.equal_range(header);
    for (auto each = range.first; each != range.second; ++each)
        values.push_back(each->second);
    return values;
}

// 0, or the status of the refusal.
int judgeBody(const httplib::Request& request, std::string& error) {
    if (request.has_header("Transfer-Encoding")) {
        error = "a body needs a Content-Length";
        return 411;
    }
    const std::vector<std::string> lengths = valuesOf(request, "Content-Length");
    const std::string length = lengths.empty() ? "0" : lengths.front();
    if (lengths.size() > 1 || length.empty() ||
        length.find_first_not_of("0123456789") != std::string::npos) {
        error = "the Content-Length is not understood";
        return 400;
    }
    if (length.size() > 6 || std::stoul(length) > mostBody) {
        error = "a body has at most " + std::to_string(mostBody) + " bytes";
        return 413;
    }
    return 0;
}

bool isJson(const httplib::Request& request) {
    const std::string type = request.get_header_value("Content-Type");
    return (type == json || type.compare(0, sizeof json, std::string(json) + ";") == 0) &&
           !request.has_header("Content-Encoding");
}

}  // namespace

HttpFront::HttpFront(const ConsoleRooms& rooms, unsigned short port, const StreamLimits& limits)
    : rooms_(rooms),
      limits_(limits),
      guard_(port),
      answers_{{"/health", &HttpFront::sendHealth},
               {"/events", &HttpFront::streamEvents},
               {"/log-lines.json", &HttpFront::sendLogLines},
               {"/catalogue.json", &HttpFront::sendCatalogue},
               {"/session.json", &HttpFront::sendSession},
               {"/screen.png", &HttpFront::sendScreenPicture},
               {"/live/screen.mjpeg", &HttpFront::streamScreen},
               {"/live/camera.mjpeg", &HttpFront::streamCamera},
               {"/live/sound", &HttpFront::streamSound}} {
    svr_sock_ = 0;  // for the library: streams may go on
    set_default_headers(everyAnswer);
    set_payload_max_length(mostBody);
    set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        return route(request, response);
    });
    Post("/order", [this](const httplib::Request& request, httplib::Response& response) {
        answerOrder(request, response);
    });
    set_expect_100_continue_handler([](const httplib::Request& request, httplib::Response& answer) {
        std::string error;
        const int status = judgeBody(request, error);
        if (status == 0)
            return 100;
        refuse(answer, status, error);
        return status;
    });
    set_error_handler([](const httplib::Request&, httplib::Response& response) {
        if (response.body.empty())
            refuse(response, response.status, "the request is not understood");
    });
}

void HttpFront::serve(int socket, std::string received) {
    GuardedStream stream(socket, std::move(received), limits_);
    bool closed = false;
    try {
        process_request(stream, true, closed, [](httplib::Request& request) {
            request.ranges.clear();  // everything is sent whole
        });
    } catch (const std::exception&) {
        // Out of memory or threads: this connection ends, the others do not.
    }
}

void HttpFront::endStreams() {
    svr_sock_ = INVALID_SOCKET;
}

int HttpFront::judge(const httplib::Request& request, std::string& error) const {
    if (!guard_.admits(valuesOf(request, "Host"), valuesOf(request, "Origin"))) {
        error = "the request comes from another page";
        return 403;
    }
    if (const int status = judgeBody(request, error))
        return status;
    const bool order = request.path == "/order";
    if (request.method != (order ? "POST" : "GET")) {
        error = order ? "orders are sent by POST" : "this is for GET only";
        return 405;
    }
    if (order && !isJson(request)) {
        error = "an order is application/json";
        return 415;
    }
    return 0;
}

HttpFront::HandlerResponse HttpFront::route(const httplib::Request& request,
                                            httplib::Response& response) {
    std::string error;
    if (const int status = judge(request, error)) {
        refuse(response, status, error);
        return HandlerResponse::Handled;
    }
    if (request.path == "/order")
        return HandlerResponse::Unhandled;  // once its body is read
    const auto answer = answers_.find(request.path);
    if (answer != answers_.end()) {
        (this->*answer->second)(request, response);
    } else if (const PageFile* file = rooms_.page.find(request.path)) {
        response.set_content(file->bytes, file->type);
    } else {
        refuse(response, 404, "there is nothing under this address");
    }
    return HandlerResponse::Handled;
}

void HttpFront::answerOrder(const httplib::Request& request, httplib::Response& response) {
    try {
        const std::string line = rooms_.gate.compose(request.body);
        response.set_content(rooms_.orders.ask(line) + "\n", json);
    } catch (const OrderRefused& refused) {
        refuse(response, 400, refused.what());
    }
}

void HttpFront::sendHealth(const httplib::Request&, httplib::Response& response) {
    response.set_content("{\"ok\": true}\n", json);
}

void HttpFront::sendLogLines(const httplib::Request&, httplib::Response& response) {
    response.set_content(rooms_.logLines, json);
}

void HttpFront::sendCatalogue(const httplib::Request&, httplib::Response& response) {
    const auto catalogue = rooms_.orders.askFor("catalogue");
    if (catalogue)
        response.set_content(*catalogue + "\n", json);
    else
        refuse(response, 502, "the board gives no catalogue");
}

void HttpFront::sendSession(const httplib::Request&, httplib::Response& response) {
    const auto session = rooms_.orders.session();
    if (!session)
        return refuse(response, 502, "the board gives no session");
    response.set_header("Content-Disposition", "attachment; filename=\"session.json\"");
    response.set_content(*session + "\n", json);
}

void HttpFront::sendScreenPicture(const httplib::Request&, httplib::Response& response) {
    const std::lock_guard<std::mutex> oneAtATime(picture_);
    const std::string path = rooms_.folder + "/screen.png";
    const std::string answer =
        rooms_.orders.ask("{\"order\": \"picture\", \"path\": \"" + path + "\"}\n");
    if (!isGood(answer))
        return refuse(response, 502, "the board gives no picture");
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    ::unlink(path.c_str());
    response.set_header("Content-Disposition", "attachment; filename=\"screen.png\"");
    response.set_content(bytes, "image/png");
}

std::shared_ptr<void> HttpFront::takePlace(httplib::Response& response) {
    if (++streams_ > mostStreams) {
        --streams_;
        refuse(response, 503, "too many streams at a time");
        return nullptr;
    }
    return {this, [this](void*) { --streams_; }};
}

void HttpFront::streamEvents(const httplib::Request&, httplib::Response& response) {
    const std::shared_ptr<void> place = takePlace(response);
    if (!place)
        return;
    const auto reader = std::make_shared<Bulletin::Reader>();
    const auto presence = std::make_shared<Bulletin::Presence>(rooms_.bulletin);
    response.set_content_provider(
        "text/event-stream", [this, place, presence, reader](std::size_t, httplib::DataSink& sink) {
            const std::string news = rooms_.bulletin.news(*reader, streamPatience);
            return news.empty() ? sink.is_writable() : sink.write(news.data(), news.size());
        });
}

void HttpFront::streamScreen(const httplib::Request&, httplib::Response& response) {
    streamPictures(rooms_.views.screen(), response);
}

void HttpFront::streamCamera(const httplib::Request&, httplib::Response& response) {
    streamPictures(rooms_.views.camera(), response);
}

void HttpFront::streamPictures(PictureChannel& channel, httplib::Response& response) {
    const std::shared_ptr<void> place = takePlace(response);
    if (!place)
        return;
    const auto viewer = std::make_shared<PictureChannel::Viewer>(channel);
    response.set_content_provider(
        std::string("multipart/x-mixed-replace; boundary=") + liveBoundary,
        [place, viewer](std::size_t sent, httplib::DataSink& sink) {
            const PictureChannel::Part part = viewer->next(streamPatience);
            if (!part)
                return sink.is_writable();
            return (sent > 0 || sink.write(liveBeginning, sizeof liveBeginning - 1)) &&
                   sink.write(part->data(), part->size());
        });
}

void HttpFront::streamSound(const httplib::Request& request, httplib::Response& response) {
    const std::string card = request.get_param_value("card");
    if (card != "microphone" && card != "output")
        return refuse(response, 400, "card is microphone or output");
    const std::shared_ptr<void> place = takePlace(response);
    if (!place)
        return;
    const auto listener = std::make_shared<SoundChannel::Listener>(
        rooms_.views.sound(card == "output" ? wire::ViewCard::output : wire::ViewCard::microphone));
    response.set_content_provider(
        "audio/wav", [place, listener](std::size_t, httplib::DataSink& sink) {
            const auto bytes = listener->next(streamPatience);
            if (!bytes) {
                sink.done();
                return true;
            }
            return bytes->empty() ? sink.is_writable() : sink.write(bytes->data(), bytes->size());
        });
}

}  // namespace board::console
