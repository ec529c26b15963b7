// The shipped application, running on a virtual board.
#pragma once

#include "tests/support/board.h"
#include "tests/support/process.h"

#include <string>
#include <vector>

namespace support {

// Ends with the object: SIGTERM, and an expectation that nothing else had ended it before;
// sanitizer reports, leaks and lines that docs/log-lines.md does not have are failures of the
// running test.
class Application {
  public:
    explicit Application(Board& board);
    ~Application();

    Process& process() { return process_; }
    Lines& out() { return process_.out(); }
    Lines& err() { return process_.err(); }

    // Waits for a line on standard output; a failure of the test with the log so far if it does not
    // come. Returns the index after it (where to go on looking).
    std::size_t expectLine(const std::string& line, Milliseconds patience = Milliseconds(5000),
                           std::size_t from = 0);
    // Until the pipeline plays (again): the supervisor's line. Returns the index after it.
    std::size_t expectPlaying(std::size_t from = 0);
    // After "delete capture media succeed": waits until no thread of the pipeline is left.
    bool waitForPipelineGone(Milliseconds patience);

    // SIGTERM and the checks of the destructor, now.
    void end();

  private:
    void checkLeaks();
    void checkReports();
    static void checkLines(const Lines& log);

    Board& board_;
    std::string reportPrefix_;
    Process process_;
    bool ended_ = false;
};

// Names of the pipeline's threads, as far as the kernel keeps them.
extern const std::vector<std::string> pipelineThreads;

}  // namespace support
