#ifndef HOST_RUNNER_CODE_NAMES_H
#define HOST_RUNNER_CODE_NAMES_H

#include <cstdint>
#include <string>

namespace Zarvo::Host {

// Who gave a code: the same number means different things from different answerers.
enum class CodeSource {
    EVENT,             // the plug-in's fault event codes
    OS_ACCOUNT,        // the OS account manager's answers
    BUNDLE_MANAGER,    // the bundle manager's answers
    RELATIONAL_STORE,  // the store that opens the account database
    MIGRATE_CLIENT,    // the plug-in's migrate client: its own codes or the service's result
    ERRNO,             // an errno value, from the migrate service or the file system
    EVENT_WRITER,      // the system event writer's result
};

// A code as a person reads it: hex, its name and a short meaning.
struct NamedCode {
    CodeSource source = CodeSource::EVENT;
    int64_t value = 0;
    std::string hex;      // "0x400001"; negative values "-0x1"
    std::string name;     // "ERR_OSACCOUNT_INVALID_PARAMETER"; "unknown" when the answerer defines none
    std::string meaning;  // "invalid parameter"
};

NamedCode NameCode(CodeSource source, int64_t value);
// The value in hex as the record writes codes: "0x400001", "-0x1".
std::string HexText(int64_t value);
// "0x400001 invalid parameter": how a sentence carries a code.
std::string CodeInWords(const NamedCode &code);
// The answerer's name in words: "the account manager".
std::string SourceName(CodeSource source);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_CODE_NAMES_H
