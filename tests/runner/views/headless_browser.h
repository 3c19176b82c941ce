#ifndef TESTS_E2E_HEADLESS_BROWSER_H
#define TESTS_E2E_HEADLESS_BROWSER_H

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <string>

// Headless Chromium driven through its DevTools protocol over a pipe (--remote-debugging-pipe):
// no port, no driver, no library. Each message is JSON followed by a NUL byte.
class HeadlessBrowser {
public:
    static constexpr const char *CHROMIUM = "/usr/bin/chromium";
    static bool Installed();

    HeadlessBrowser() = default;
    ~HeadlessBrowser();
    HeadlessBrowser(const HeadlessBrowser &) = delete;
    HeadlessBrowser &operator=(const HeadlessBrowser &) = delete;

    // Starts the browser with a fresh profile. False with one sentence in `error`.
    bool Start(std::string &error);
    // Opens a local file in a new tab and waits for its load event.
    bool Open(const std::string &path, std::string &error);
    // Lays the open page out in a window `width` CSS pixels wide. It is no phone emulation, which
    // would widen its layout to fit what overflows and so hide it.
    bool SetWidth(int width, std::string &error);
    // The value of a JavaScript expression in the open page, a promise awaited; null on failure.
    nlohmann::json Evaluate(const std::string &expression, std::string &error);

private:
    nlohmann::json Call(const std::string &method, const nlohmann::json &params, bool inPage,
                        std::string &error);
    bool ReadMessage(nlohmann::json &message, std::string &error);

    pid_t pid_ = -1;
    int toBrowser_ = -1;
    int fromBrowser_ = -1;
    std::string received_;
    int lastId_ = 0;
    std::string session_;
    std::string profile_;
    bool loaded_ = false;
};

#endif  // TESTS_E2E_HEADLESS_BROWSER_H
