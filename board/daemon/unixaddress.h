// The address of a UNIX socket by its path, however long the path is.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace board {

// A path that sun_path cannot hold is reached through its folder's descriptor, which stays open as
// long as the object lives. Throws std::system_error when the folder or the name cannot be used.
class UnixAddress {
  public:
    explicit UnixAddress(const std::string& path);
    ~UnixAddress();
    UnixAddress(const UnixAddress&) = delete;
    UnixAddress& operator=(const UnixAddress&) = delete;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }
    socklen_t size() const { return sizeof address_; }

  private:
    sockaddr_un address_{};
    int folder_ = -1;
};

}  // namespace board
