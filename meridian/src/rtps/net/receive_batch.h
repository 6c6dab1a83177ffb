#pragma once

// Buffers for receiving many datagrams with one system call. Used by one thread.

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "rtps/wire/types.h"

namespace meridian::rtps::net {

struct ReceivedDatagram {
    ByteView bytes; // valid until the next receive
    const sockaddr* source = nullptr;
    bool truncated = false; // it was larger than the buffer; bytes is its beginning
};

class ReceiveBatch {
  public:
    /// Memory is touched only as far as datagrams fill it.
    ReceiveBatch(size_t capacity, size_t buffer_size);

    /// Fetches what is waiting on the socket, up to the capacity, without waiting. 0 when nothing is;
    /// error_number() then tells a failure (0: there was just nothing).
    size_t receive(int socket);
    int error_number() const { return error_number_; }

    size_t size() const { return count_; }
    ReceivedDatagram operator[](size_t position) const;

  private:
    std::unique_ptr<uint8_t[]> memory_;
    std::vector<sockaddr_storage> sources_;
    std::vector<iovec> vectors_;
    std::vector<mmsghdr> headers_;
    size_t count_ = 0;
    int error_number_ = 0;
};

} // namespace meridian::rtps::net
