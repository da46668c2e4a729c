// The descriptor leak register shared by the file layer (which opens and closes descriptors) and
// the leak checker.
#pragma once

#include <cstdint>
#include <string>

namespace zakhost {

// The file layer names each descriptor it opens, so that a leak report says which file it is.
void fd_opened(int32_t fd, const std::string &path);
// Takes a descriptor out of the register before it is closed; false when it was not there. Taking
// it out first matters with threads: once closed, its number can be handed to another thread's
// open at once, whose registration must not be undone by this close.
bool fd_closing(int32_t fd);
// Whether the file layer opened this descriptor and has not closed it yet.
bool fd_is_open(int32_t fd);

} // namespace zakhost
