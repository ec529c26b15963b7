// Whether a request comes from this console's own page.
#pragma once

#include <string>
#include <vector>

namespace board::console {

// Another site's page can make a browser send requests here (Origin tells), and reach this address
// under a name of its own (Host tells).
class RequestGuard {
  public:
    explicit RequestGuard(unsigned short port);

    // All values of the two headers, as they came. Origin may be absent.
    bool admits(const std::vector<std::string>& hosts,
                const std::vector<std::string>& origins) const;

  private:
    std::vector<std::string> own_;
};

}  // namespace board::console
