#include "headless_browser.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

namespace {

// The browser reads commands from descriptor 3 and writes answers to descriptor 4.
constexpr int BROWSER_IN = 3;
constexpr int BROWSER_OUT = 4;
// A guard against a browser that hangs, not a measure: a page here loads in well under a second.
constexpr int READ_GUARD_MS = 60000;

}  // namespace

bool HeadlessBrowser::Installed() {
    return access(CHROMIUM, X_OK) == 0;
}

HeadlessBrowser::~HeadlessBrowser() {
    if (pid_ > 0) {
        std::string ignored;
        Call("Browser.close", nlohmann::json::object(), false, ignored);
        close(toBrowser_);
        close(fromBrowser_);
        int status = 0;
        kill(pid_, SIGTERM);
        waitpid(pid_, &status, 0);
    }
    if (!profile_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(profile_, ignored);
    }
}

bool HeadlessBrowser::Start(std::string &error) {
    char pattern[] = "/tmp/browser_profile_XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        error = "could not make a browser profile folder";
        return false;
    }
    profile_ = pattern;
    int commands[2];
    int answers[2];
    if (pipe2(commands, O_CLOEXEC) != 0 || pipe2(answers, O_CLOEXEC) != 0) {
        error = "could not make the browser's pipes";
        return false;
    }
    // Root runs it here, so without its sandbox; without background networking it opens no
    // connection of its own (this machine refuses them).
    std::vector<std::string> arguments = {CHROMIUM,
                                          "--headless",
                                          "--no-sandbox",
                                          "--disable-gpu",
                                          "--disable-quic",
                                          "--no-first-run",
                                          "--disable-background-networking",
                                          "--disable-component-update",
                                          "--disable-sync",
                                          "--remote-debugging-pipe",
                                          "--user-data-dir=" + profile_,
                                          "about:blank"};
    pid_ = fork();
    if (pid_ < 0) {
        error = "could not start the browser";
        return false;
    }
    if (pid_ == 0) {
        int quiet = open("/dev/null", O_WRONLY);
        dup2(quiet, STDOUT_FILENO);
        dup2(quiet, STDERR_FILENO);
        // Moved out of the way first: a pipe end may itself be descriptor 3 or 4.
        int in = fcntl(commands[0], F_DUPFD, 10);
        int out = fcntl(answers[1], F_DUPFD, 10);
        dup2(in, BROWSER_IN);
        dup2(out, BROWSER_OUT);
        std::vector<char *> argv;
        for (auto &argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        execv(CHROMIUM, argv.data());
        _exit(127);
    }
    close(commands[0]);
    close(answers[1]);
    toBrowser_ = commands[1];
    fromBrowser_ = answers[0];
    return !Call("Browser.getVersion", nlohmann::json::object(), false, error).is_null();
}

bool HeadlessBrowser::SetWidth(int width, std::string &error) {
    return !Call("Emulation.setDeviceMetricsOverride",
                 {{"width", width}, {"height", 800}, {"deviceScaleFactor", 1}, {"mobile", false}}, true,
                 error)
                .is_null();
}

bool HeadlessBrowser::Open(const std::string &path, std::string &error) {
    nlohmann::json target = Call("Target.createTarget", {{"url", "about:blank"}}, false, error);
    if (target.is_null()) {
        return false;
    }
    nlohmann::json attached =
        Call("Target.attachToTarget", {{"targetId", target["targetId"]}, {"flatten", true}}, false, error);
    if (attached.is_null()) {
        return false;
    }
    session_ = attached["sessionId"];
    const std::string url = "file://" + path;
    if (Call("Page.enable", nlohmann::json::object(), true, error).is_null()) {
        return false;
    }
    loaded_ = false;
    if (Call("Page.navigate", {{"url", url}}, true, error).is_null()) {
        return false;
    }
    // A load event of the blank page may still be on its way: only the file's own load counts.
    for (;;) {
        while (!loaded_) {
            nlohmann::json message;
            if (!ReadMessage(message, error)) {
                return false;
            }
            loaded_ = message.value("method", "") == "Page.loadEventFired" &&
                      message.value("sessionId", "") == session_;
        }
        if (Evaluate("location.href + ' ' + document.readyState", error) == url + " complete") {
            return true;
        }
        loaded_ = false;
    }
}

nlohmann::json HeadlessBrowser::Evaluate(const std::string &expression, std::string &error) {
    nlohmann::json answer =
        Call("Runtime.evaluate",
             {{"expression", expression}, {"returnByValue", true}, {"awaitPromise", true}}, true, error);
    if (answer.is_null()) {
        return nullptr;
    }
    if (answer.contains("exceptionDetails")) {
        error = "the page's script failed: " + answer["exceptionDetails"].dump();
        return nullptr;
    }
    return answer["result"].value("value", nlohmann::json());
}

nlohmann::json HeadlessBrowser::Call(const std::string &method, const nlohmann::json &params, bool inPage,
                                     std::string &error) {
    const int id = ++lastId_;
    nlohmann::json command = {{"id", id}, {"method", method}, {"params", params}};
    if (inPage) {
        command["sessionId"] = session_;
    }
    const std::string text = command.dump() + '\0';
    for (size_t sent = 0; sent < text.size();) {
        ssize_t put = write(toBrowser_, text.data() + sent, text.size() - sent);
        if (put <= 0 && errno != EINTR) {
            error = "the browser stopped reading its commands";
            return nullptr;
        }
        sent += put > 0 ? static_cast<size_t>(put) : 0;
    }
    for (;;) {
        nlohmann::json message;
        if (!ReadMessage(message, error)) {
            return nullptr;
        }
        if (message.value("method", "") == "Page.loadEventFired" &&
            message.value("sessionId", "") == session_) {
            loaded_ = true;
        }
        if (message.value("id", 0) != id) {
            continue;
        }
        if (message.contains("error")) {
            error = method + " failed: " + message["error"].dump();
            return nullptr;
        }
        return message.value("result", nlohmann::json::object());
    }
}

bool HeadlessBrowser::ReadMessage(nlohmann::json &message, std::string &error) {
    for (;;) {
        size_t end = received_.find('\0');
        if (end != std::string::npos) {
            message = nlohmann::json::parse(received_.substr(0, end), nullptr, false);
            received_.erase(0, end + 1);
            return true;
        }
        pollfd ready{fromBrowser_, POLLIN, 0};
        if (poll(&ready, 1, READ_GUARD_MS) <= 0) {
            error = "the browser did not answer";
            return false;
        }
        char buffer[65536];
        ssize_t got = read(fromBrowser_, buffer, sizeof(buffer));
        if (got <= 0) {
            error = "the browser closed its pipe";
            return false;
        }
        received_.append(buffer, static_cast<size_t>(got));
    }
}
