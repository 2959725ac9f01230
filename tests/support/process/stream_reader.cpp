// Reads several streams at once into texts, on a thread of its own.
#include "tests/support/process/stream_reader.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

#include "tests/support/process/waiting.h"

namespace test_support {

StreamReader::StreamReader(std::vector<UniqueFd> streams) : stop_(eventfd(0, EFD_CLOEXEC)) {
    for (UniqueFd& fd : streams) {
        const bool ended = !fd;
        streams_.push_back({std::move(fd), {}, ended});
    }
    thread_ = std::thread(&StreamReader::run, this);
}

StreamReader::~StreamReader() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(stop_.get(), &one, sizeof one);
    thread_.join();
}

std::string StreamReader::text(std::size_t stream) const {
    const std::lock_guard lock(mutex_);
    return streams_.at(stream).text;
}

bool StreamReader::waitFor(std::size_t stream,
                           const std::function<bool(const std::string&)>& holds) const {
    std::unique_lock lock(mutex_);
    const Stream& wanted = streams_.at(stream);
    changed_.wait_for(lock, patience(), [&] { return wanted.ended || holds(wanted.text); });
    return holds(wanted.text);
}

bool StreamReader::waitForEnd() const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience(), [&] {
        return std::all_of(streams_.begin(), streams_.end(), [](auto& s) { return s.ended; });
    });
}

void StreamReader::run() {
    std::vector<pollfd> polled(streams_.size() + 1, pollfd{-1, POLLIN, 0});
    polled.back().fd = stop_.get();
    while (polled.back().revents == 0) {
        for (std::size_t i = 0; i < streams_.size(); ++i) {
            // A negative descriptor is passed over by poll: so are the streams that have ended.
            polled[i].fd = streams_[i].ended ? -1 : streams_[i].fd.get();
        }
        if (poll(polled.data(), polled.size(), -1) > 0) {
            readReady(polled);
        }
    }
}

void StreamReader::readReady(const std::vector<pollfd>& polled) {
    for (std::size_t i = 0; i < streams_.size(); ++i) {
        if (polled[i].fd >= 0 && polled[i].revents != 0) {
            readOnce(streams_[i]);
        }
    }
}

void StreamReader::readOnce(Stream& stream) {
    std::array<char, 65536> buffer{};
    const ssize_t length = read(stream.fd.get(), buffer.data(), buffer.size());
    if (length < 0 && errno == EINTR) {
        return;
    }
    {
        // A pseudo-terminal ends with EIO once its other side is closed.
        const std::lock_guard lock(mutex_);
        stream.ended = length <= 0;
        stream.text.append(buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    }
    changed_.notify_all();
}

}  // namespace test_support
