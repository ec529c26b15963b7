// Reports on order: the program under test never exits, so nothing would say what leaked or what
// was covered. In the process whose executable VIRTUAL_BOARD_REPORTS names (by its base name), a
// helper thread watches SharedPage::dumpRequest and calls __lsan_do_recoverable_leak_check and
// __gcov_dump, which that executable must export.
#pragma once

namespace board::preload {

constexpr char reportsVariable[] = "VIRTUAL_BOARD_REPORTS";

}  // namespace board::preload
