#pragma once

#include <string>

namespace agentsim {

// Rewrites a profile (captured or hand-written) so that it no longer tells
// which machine it came from: serial numbers, chassis id, asset tag, UUID,
// board serial and ident numbers, host name and IP addresses are replaced by
// placeholders of the same shape, wherever they stand (texts of other values,
// event messages and the event log block included). Everything else stays.
// The same input always gives the same output. False with a message when
// `in` is not JSON.
bool RedactProfile(const std::string& in, std::string& out, std::string& error);

}  // namespace agentsim
