#include "rtps/net/receive_batch.h"

#include <sys/uio.h>

#include <cerrno>

namespace meridian::rtps::net {

namespace {

constexpr size_t kAlignment = 64; // whole cache lines, so that wide reads in one datagram stay aligned

size_t aligned(size_t size) {
    return (size + kAlignment - 1) / kAlignment * kAlignment;
}

} // namespace

ReceiveBatch::ReceiveBatch(size_t capacity, size_t buffer_size)
    : memory_(new uint8_t[capacity * aligned(buffer_size)]), // not make_unique: that would write all of it
      sources_(capacity),
      vectors_(capacity),
      headers_(capacity) {
    for (size_t i = 0; i < capacity; ++i) {
        vectors_[i].iov_base = memory_.get() + i * aligned(buffer_size);
        vectors_[i].iov_len = buffer_size;
        headers_[i].msg_hdr.msg_iov = &vectors_[i];
        headers_[i].msg_hdr.msg_iovlen = 1;
        headers_[i].msg_hdr.msg_name = &sources_[i];
    }
}

size_t ReceiveBatch::receive(int socket) {
    count_ = 0;
    error_number_ = 0;
    for (mmsghdr& header : headers_)
        header.msg_hdr.msg_namelen = sizeof(sockaddr_storage);
    const int received =
        recvmmsg(socket, headers_.data(), static_cast<unsigned>(headers_.size()), MSG_DONTWAIT, nullptr);
    if (received >= 0)
        count_ = static_cast<size_t>(received);
    else if (errno != EAGAIN && errno != EINTR)
        error_number_ = errno;
    return count_;
}

ReceivedDatagram ReceiveBatch::operator[](size_t position) const {
    const mmsghdr& header = headers_[position];
    ReceivedDatagram datagram;
    datagram.bytes = ByteView(static_cast<const uint8_t*>(vectors_[position].iov_base), header.msg_len);
    datagram.source = reinterpret_cast<const sockaddr*>(&sources_[position]);
    datagram.truncated = (header.msg_hdr.msg_flags & MSG_TRUNC) != 0;
    return datagram;
}

} // namespace meridian::rtps::net
