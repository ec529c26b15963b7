#include "board/daemon/sessionorders.h"

#include "board/daemon/catalogue.h"
#include "board/daemon/jobworker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace board {

namespace {

constexpr std::size_t longestPath = 4095;

bool writeAll(int fd, const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t bytes = ::write(fd, text.data() + done, text.size() - done);
        if (bytes < 0 && errno != EINTR)
            return false;
        done += bytes > 0 ? std::size_t(bytes) : 0;
    }
    return true;
}

// Whole or not at all; never a device, a pipe or the like. An error line, empty on success.
std::string writeFile(const std::string& path, const std::string& text) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        return path + ": is there and is no ordinary file";
    std::string part = path + ".XXXXXX";
    const int fd = ::mkostemp(part.data(), O_CLOEXEC);
    int error = fd < 0 ? errno : 0;
    if (fd >= 0) {
        if (!writeAll(fd, text) || ::fchmod(fd, 0644) != 0)
            error = errno;
        ::close(fd);
        if (error == 0 && ::rename(part.c_str(), path.c_str()) != 0)
            error = errno;
        if (error != 0)
            ::unlink(part.c_str());
    }
    return error == 0 ? ""
                      : path + ": cannot be written: " + std::generic_category().message(error);
}

class Files {
  public:
    Files(EventLoop& loop, const Session& session) : loop_(loop), session_(session) {}

    void catalogue(const OrderDone& done) {
        worker_.run([this, done] {
            OrderResult result;
            result.fields = readCatalogue();
            answer(result, done);
        });
    }

    void session(JsonObject& order, const OrderDone& done) {
        const std::string text = session_.document();
        if (!order.has("path")) {
            std::string line = text;
            std::replace(line.begin(), line.end(), '\n', ' ');
            OrderResult result;
            result.fields.addRaw("session", line);
            done(result);
            return;
        }
        const JsonPlace place = order.get("path");
        const std::string path = place.text(longestPath);
        if (path.empty() || path.front() != '/')
            place.fail("must be an absolute path");
        const auto orders = std::uint64_t(session_.taken());
        worker_.run([this, path, text, orders, done] {
            OrderResult result;
            result.error = writeFile(path, text);
            result.fields.add("path", path).add("orders", orders);
            answer(result, done);
        });
    }

  private:
    void answer(const OrderResult& result, const OrderDone& done) {
        loop_.post([result, done] { done(result); });
    }

    EventLoop& loop_;
    const Session& session_;
    JobWorker worker_;
};

}  // namespace

void addSessionOrders(Orders& orders, CoreBoard& board, const Session& session) {
    const auto files = std::make_shared<Files>(board.loop(), session);
    orders.add("catalogue",
               [files](JsonObject&, const OrderDone& done) { files->catalogue(done); });
    orders.add("session",
               [files](JsonObject& order, const OrderDone& done) { files->session(order, done); });
}

}  // namespace board
