// The daemon's side of the shared page: a file that every client maps read-only or, for the
// counters, read-write. Nothing in it is trusted when read back except the counters' numbers.
#pragma once

#include "board/protocol/sharedpage.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace board {

class CorePage {
  public:
    struct Park {
        unsigned index;
        std::string call;
        std::string thread;
        std::uint32_t held;
    };

    // Creates the file. Both origins are now. Throws std::system_error.
    CorePage(const std::string& path, std::uint32_t speed);
    ~CorePage();  // unmaps and removes the file
    CorePage(const CorePage&) = delete;
    CorePage& operator=(const CorePage&) = delete;

    wire::SharedPage& page() { return *page_; }
    const wire::SharedPage& page() const { return *page_; }

    // A character device that is there from now on, with an inode that no earlier one had. Throws
    // std::runtime_error when the path is too long or the table is full.
    void addNode(const std::string& path, unsigned major, unsigned minor);
    void removeNode(const std::string& path);

    // A free state word, set to 0; nothing when all are taken. Reused as late as possible: a client
    // may look at a word for a moment after its descriptor was closed.
    std::optional<std::uint32_t> takeSlot();
    void giveBackSlot(std::uint32_t slot);
    void setHandleState(std::uint32_t slot, std::uint32_t bits);

    // Index of a new park; nothing when all are in use. `call` has at most 39 characters,
    // `thread` 15.
    std::optional<unsigned> park(const std::string& call, const std::string& thread);
    bool unpark(unsigned index);  // false when there is none
    std::vector<Park> parks() const;

  private:
    std::string path_;
    wire::SharedPage* page_ = nullptr;
    std::uint64_t lastInode_ = 0;
    std::vector<bool> slotTaken_;
    std::uint32_t nextSlot_ = 0;
    unsigned nextPark_ = 0;
};

}  // namespace board
