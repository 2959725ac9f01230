// The message with which one process hands a descriptor to another.
#pragma once

#include <sys/socket.h>

#include <array>

namespace faults {

// One byte, and room for one descriptor beside it.
struct DescriptorMessage {
    DescriptorMessage() {
        header.msg_iov = &data;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }
    DescriptorMessage(const DescriptorMessage&) = delete;
    DescriptorMessage& operator=(const DescriptorMessage&) = delete;

    char byte = 0;
    iovec data{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr header{};
};

}  // namespace faults
