// Bare Unix-socket helpers for the benchmarks' floor measurements and fake
// peers. They frame like the agent (4-byte length counting text + NUL) but
// share nothing with the client's channel code, so the floor stays a floor.
#ifndef ZENTRIX_BENCH_RAWSOCKET_H_
#define ZENTRIX_BENCH_RAWSOCKET_H_

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace rawsocket {

// Length word, text, NUL.
inline std::string Frame(const std::string& text) {
  const uint32_t length = static_cast<uint32_t>(text.size() + 1);
  std::string frame(reinterpret_cast<const char*>(&length), 4);
  frame += text;
  frame.push_back('\0');
  return frame;
}

// False on end of file or error before `size` bytes arrived.
inline bool ReadExactly(int fd, char* data, size_t size) {
  size_t got = 0;
  while (got < size) {
    const ssize_t n = read(fd, data + got, size - got);
    if (n <= 0) return false;
    got += static_cast<size_t>(n);
  }
  return true;
}

inline bool WriteAll(int fd, const char* data, size_t size) {
  size_t sent = 0;
  while (sent < size) {
    const ssize_t n = send(fd, data + sent, size - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

inline bool WriteAll(int fd, const std::string& bytes) { return WriteAll(fd, bytes.data(), bytes.size()); }

inline sockaddr_un Address(const std::string& path) {
  sockaddr_un addr;
  std::memset(&addr, 0, sizeof(addr));
  addr.sun_family = AF_UNIX;
  std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
  return addr;
}

// A connected stream socket, or -1.
inline int Connect(const std::string& path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0) return -1;
  const sockaddr_un addr = Address(path);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

}  // namespace rawsocket

#endif  // ZENTRIX_BENCH_RAWSOCKET_H_
