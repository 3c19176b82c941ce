#ifndef ZARVO_SUPPORT_PRINTABLE_H
#define ZARVO_SUPPORT_PRINTABLE_H

#include <string>

namespace Zarvo::Support {

// Text from input as a terminal may show it: control characters (C0, DEL, and C1 written as
// UTF-8) become "?", since they would move the cursor, retitle the window or reach the clipboard.
std::string Printable(const std::string &text);

}  // namespace Zarvo::Support

#endif  // ZARVO_SUPPORT_PRINTABLE_H
