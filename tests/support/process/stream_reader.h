// Reads several streams at once into texts, on a thread of its own.
#pragma once

#include <poll.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/process/unique_fd.h"

namespace test_support {

class StreamReader {
public:
    // Reads until each stream ends or the reader does.
    explicit StreamReader(std::vector<UniqueFd> streams);
    ~StreamReader();
    StreamReader(const StreamReader&) = delete;
    StreamReader& operator=(const StreamReader&) = delete;

    // What has come in by now on the stream of that index.
    std::string text(std::size_t stream) const;

    // Waits until `holds` is true of that stream's text; false when it is not in patience() or can
    // no longer become true because the stream has ended.
    bool waitFor(std::size_t stream, const std::function<bool(const std::string&)>& holds) const;

    // Waits until nothing more can come on any stream; false when that takes too long.
    bool waitForEnd() const;

private:
    struct Stream {
        UniqueFd fd;
        std::string text;
        bool ended = false;
    };

    void run();
    void readReady(const std::vector<pollfd>& polled);
    void readOnce(Stream& stream);

    std::vector<Stream> streams_;
    UniqueFd stop_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::thread thread_;
};

}  // namespace test_support
