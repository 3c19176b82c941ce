#ifndef ZARVO_PLATFORM_CONTROL_CREDENTIAL_CONTROL_H
#define ZARVO_PLATFORM_CONTROL_CREDENTIAL_CONTROL_H

// Host control of the credential service. The plug-in never includes this header.

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace Zarvo::Host {

// How the credential service answers each clear-redundancy request.
struct CredentialAnswer {
    int32_t result = 0;            // reported through OnResult
    bool sendAcquireInfo = false;  // call OnAcquireInfo(module, acquireInfo, ...) before OnResult
    int32_t module = 0;
    uint32_t acquireInfo = 0;
};

// Clear-redundancy requests received since the last reset, answered or not.
std::size_t CredentialClearRequestCount();

// Requests whose callbacks have returned from OnResult since the last reset.
std::size_t CredentialClearAnswerCount();

// Applies to requests made after the call.
void SetCredentialAnswer(const CredentialAnswer &answer);

// Waits until at least `count` requests have been answered. Returns false on time-out.
// A host that unloads the plug-in must wait first: the callbacks are the plug-in's code.
bool WaitForCredentialAnswers(std::size_t count, std::chrono::milliseconds timeout);

// Waits for every pending answer, then sets both counts to 0 and the answer to its default.
void ResetCredentialService();

}  // namespace Zarvo::Host

#endif  // ZARVO_PLATFORM_CONTROL_CREDENTIAL_CONTROL_H
