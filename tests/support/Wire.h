#pragma once

// What test peers put on an agent socket and take off it, written apart from
// both the client's channel code and the simulator's own framing, so that a
// mistake in either shows against this one.

#include <sys/un.h>

#include <cstdint>
#include <optional>
#include <string>

// {"SIP":{"V":<version>,"CMD":[<commands>]}}
std::string Sip(const std::string& commands, int version = 1);

// The 4-byte little-endian length word.
std::string LengthWord(uint32_t length);
// A well-formed frame: the length word (text + NUL), the text, the NUL.
std::string Framed(const std::string& text);

sockaddr_un UnixAddress(const std::string& path);

// Every byte, without SIGPIPE; false when the peer is gone.
bool WriteAll(int fd, const std::string& bytes);
// Up to `n` bytes: fewer when the peer closes (then `*closed` is set) or
// `timeoutMs` runs out.
std::string ReadBytes(int fd, size_t n, int timeoutMs, bool* closed = nullptr);
// One frame's text (without its NUL); nothing on time-out, end of file, or a
// frame whose length word and final NUL do not agree.
std::optional<std::string> ReadFrame(int fd, int timeoutMs = 5000);
