// The board as its devices see it: loop, clock, nodes. Also the files that stand for the nodes in
// sysfs, and the folder that stands for the fixed paths.
#pragma once

#include "board/daemon/board.h"
#include "board/daemon/corepage.h"

#include <map>
#include <string>

namespace board {

class CoreBoard final : public Board {
  public:
    // `folder` is the run folder and exists. Creates the page and root/ with what a fresh system
    // has; files of an earlier run under root/userdata and root/etc stay. Throws on failure.
    CoreBoard(EventLoop& loop, const std::string& folder, std::uint32_t speed);
    ~CoreBoard() override;  // takes the remaining nodes away

    EventLoop& loop() override { return loop_; }
    const BoardClock& clock() const override { return clock_; }
    std::int64_t realtime_ns() const override;
    void addNode(const std::string& path, unsigned major, unsigned minor, Device& device) override;
    void removeNode(const std::string& path) override;
    void setHandleState(std::uint32_t slot, std::uint32_t bits) override;
    void log(const std::string& line) override;  // to standard error, with the time

    Device* deviceAt(const std::string& path) const;  // null when there is no such node
    CorePage& page() { return page_; }
    const std::string& folder() const { return folder_; }
    std::string root() const;

  private:
    struct Node {
        Device* device;
        std::string sysFolder;
    };

    EventLoop& loop_;
    std::string folder_;
    CorePage page_;
    BoardClock clock_;
    std::map<std::string, Node> nodes_;
};

}  // namespace board
