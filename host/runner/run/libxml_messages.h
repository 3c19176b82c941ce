#ifndef HOST_RUNNER_LIBXML_MESSAGES_H
#define HOST_RUNNER_LIBXML_MESSAGES_H

namespace Zarvo::Host {

// Routes libxml2's messages in this process, on every thread, to stderr as printable lines
// ("libxml2: file:line: message"): they quote the phone's files, and the plug-in, whose parse
// reports its errors, runs inside the runner. A parse that asked for no errors or warnings still
// gets none; after 100 lines the rest are counted out in one line, since a recovering parse of a
// hostile file can report without end.
void PrintLibxmlMessagesPrintably();

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_LIBXML_MESSAGES_H
