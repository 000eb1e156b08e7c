#pragma once
#include <cstdint>
#include <optional>
#include <string>

namespace httplib {
struct Request;
struct Response;
}  // namespace httplib

// Faults that go below an HTTP answer: a reset connection, a body larger than any client
// cap, and a body taken from a file on disk.
namespace tovani::adserver {

// Resets the connection `req` arrived on (TCP RST), so that the client gets no answer at all.
// Whatever the server writes afterwards goes nowhere. False when the socket was not found.
bool resetConnection(const httplib::Request& req);

// Announces and streams `bytes` zero bytes, produced as they are asked for, so that a client
// that stops reading at its cap costs the server nothing more.
void setOversizeBody(httplib::Response& res, std::uint64_t bytes, const std::string& type);

// The whole file, or none when it cannot be read.
std::optional<std::string> readWholeFile(const std::string& path);

}  // namespace tovani::adserver
