// A progress line on stderr for long jobs of the kvosc tool.  It is drawn
// only when stderr is a terminal (or KVOSC_PROGRESS=1 asks for it), never
// into a pipe or a file, and only for inputs longer than `min_seconds`.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

namespace kvosc {

class Progress {
public:
    Progress(std::string what, double seconds, double min_seconds = 30.0)
        : what_(std::move(what)), on_(seconds > min_seconds && wanted()) {}
    ~Progress() { finish(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    bool on() const { return on_; }
    // done of total units; redraws only when the whole percent changes.
    void update(size_t done, size_t total) {
        if (!on_ || total == 0) return;
        const int pct = static_cast<int>(100.0 * static_cast<double>(done) / static_cast<double>(total));
        if (pct == last_) return;
        last_ = pct;
        std::fprintf(stderr, "\rkvosc: %s: %3d%%", what_.c_str(), pct);
        std::fflush(stderr);
    }
    // Ends the line (once) if anything was drawn.
    void finish() {
        if (last_ >= 0) std::fprintf(stderr, "\n");
        last_ = -1;
        on_ = false;
    }

private:
    static bool wanted() {
        const char* force = std::getenv("KVOSC_PROGRESS");
        if (force && *force) return force[0] == '1';
        return isatty(2) != 0;
    }
    std::string what_;
    bool on_;
    int last_ = -1;
};

}  // namespace kvosc
