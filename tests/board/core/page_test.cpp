#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <sstream>

#include "tests/board/core/servedboard.h"

namespace boardtest {
namespace {

namespace wire = board::wire;

// The page as a client sees it.
class Page : public ServedBoard {
  protected:
    Page() {
        const int fd = ::open((folder_ + "/page").c_str(), O_RDWR | O_CLOEXEC);
        void* memory =
            ::mmap(nullptr, sizeof(wire::SharedPage), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        ::close(fd);
        if (memory != MAP_FAILED)
            page_ = static_cast<wire::SharedPage*>(memory);
    }
    ~Page() override { ::munmap(page_, sizeof *page_); }

    wire::NodeEntry* node(const std::string& path) {
        for (std::uint32_t i = 0; i < page_->nodeCount.load(); ++i)
            if (path == page_->nodes[i].path)
                return &page_->nodes[i];
        return nullptr;
    }

    std::string fileText(const std::string& path) {
        std::ifstream file(folder_ + "/root" + path);
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }

    wire::SharedPage* page_ = nullptr;
};

TEST_F(Page, HeadAndClocks) {
    ASSERT_NE(page_, nullptr);
    EXPECT_EQ(page_->magic, wire::pageMagic);
    EXPECT_EQ(page_->version, wire::protocolVersion);
    EXPECT_EQ(page_->speed, 1u);
    const std::int64_t age_ns = board::EventLoop::now_ns() - page_->monotonicOrigin_ns;
    EXPECT_GE(age_ns, 0);
    EXPECT_LT(age_ns, 60000000000);
    EXPECT_NEAR(double(page_->realtimeOrigin_ns / 1000000000), double(::time(nullptr)), 60);
    EXPECT_EQ(board_->clock().toBoard(page_->monotonicOrigin_ns), page_->monotonicOrigin_ns);
}

TEST_F(Page, NodeAsAStatWouldTell) {
    const wire::NodeEntry* entry = node(fakeNode);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->present.load(), 1u);
    EXPECT_EQ(entry->mode, std::uint32_t(S_IFCHR | 0660));
    EXPECT_EQ(entry->rdev, makedev(81, 3));
    EXPECT_EQ(fileText("/sys/dev/char/81:3/uevent"), "MAJOR=81\nMINOR=3\nDEVNAME=fake\n");
}

TEST_F(Page, EveryPluggingHasANewInode) {
    const std::uint64_t first = node(fakeNode)->inode;
    onLoop([&] { board_->removeNode(fakeNode); });
    EXPECT_EQ(node(fakeNode)->present.load(), 0u);
    EXPECT_EQ(fileText("/sys/dev/char/81:3/uevent"), "");
    onLoop([&] { board_->addNode(secondNode, 81, 4, device_); });
    onLoop([&] { board_->addNode(fakeNode, 81, 3, device_); });
    EXPECT_EQ(node(fakeNode)->present.load(), 1u);
    const std::set<std::uint64_t> inodes = {first, node(fakeNode)->inode, node(secondNode)->inode};
    EXPECT_EQ(inodes.size(), 3u);
    EXPECT_EQ(page_->nodeCount.load(), 2u) << "a path keeps its entry";
}

TEST_F(Page, SlotsAreReusedLate) {
    board::CorePage& page = board_->page();
    onLoop([&] {
        const auto first = page.takeSlot();
        ASSERT_TRUE(first);
        page.setHandleState(*first, wire::handleGone);
        page.giveBackSlot(*first);
        const auto second = page.takeSlot();
        ASSERT_TRUE(second);
        EXPECT_NE(*first, *second);
        page.giveBackSlot(*second);
    });
    onLoop([&] {
        std::set<std::uint32_t> taken;
        for (unsigned i = 0; i < wire::maxHandles; ++i) {
            const auto slot = page.takeSlot();
            ASSERT_TRUE(slot);
            EXPECT_TRUE(taken.insert(*slot).second);
            EXPECT_EQ(page.page().handles[*slot].load(), 0u) << "the state of an earlier handle";
        }
        EXPECT_FALSE(page.takeSlot());
        for (const std::uint32_t slot : taken)
            page.giveBackSlot(slot);
    });
}

TEST_F(Page, HandleStateReachesClients) {
    onLoop([&] { board_->setHandleState(5, wire::handleStreaming); });
    EXPECT_EQ(page_->handles[5].load(), wire::handleStreaming);
    onLoop([&] { board_->setHandleState(wire::maxHandles, 1); });  // no such word: nothing happens
    EXPECT_EQ(page_->parks[0].active.load(), 0u);
}

TEST_F(Page, TooManyNodesAreRefused) {
    onLoop([&] {
        board::CorePage& page = board_->page();
        for (unsigned i = 1; i < wire::maxNodes; ++i)
            page.addNode("/dev/n" + std::to_string(i), 1, i);
        EXPECT_THROW(page.addNode("/dev/more", 1, 200), std::runtime_error);
        EXPECT_THROW(page.addNode("/dev/" + std::string(60, 'x'), 1, 1), std::runtime_error);
    });
    EXPECT_EQ(page_->nodeCount.load(), wire::maxNodes);
}

}  // namespace
}  // namespace boardtest
