// A debugging aid: raw frames into a file.
#pragma once

// Appends `size` bytes to ./capture, which the first call creates anew; the number of calls so far.
// The call that reaches `limit` closes the file and ends the process with 0 at once. One thread
// only.
int captureVideoFile(char* buf, int size, int limit);
