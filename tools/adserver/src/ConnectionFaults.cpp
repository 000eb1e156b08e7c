#include "ConnectionFaults.hpp"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace tovani::adserver {
namespace {

// Address and port of one end of a socket, as httplib writes them.
bool endpoint(int fd, bool peer, std::string& address, int& port) {
  sockaddr_storage storage{};
  socklen_t length = sizeof storage;
  auto* any = reinterpret_cast<sockaddr*>(&storage);
  if ((peer ? getpeername(fd, any, &length) : getsockname(fd, any, &length)) != 0) return false;
  char text[INET6_ADDRSTRLEN] = {};
  if (storage.ss_family == AF_INET) {
    const auto* in = reinterpret_cast<sockaddr_in*>(&storage);
    inet_ntop(AF_INET, &in->sin_addr, text, sizeof text);
    port = ntohs(in->sin_port);
  } else if (storage.ss_family == AF_INET6) {
    const auto* in = reinterpret_cast<sockaddr_in6*>(&storage);
    inet_ntop(AF_INET6, &in->sin6_addr, text, sizeof text);
    port = ntohs(in->sin6_port);
  } else {
    return false;
  }
  address = text;
  return true;
}

// httplib does not hand its socket to a handler; the connection is the one socket of this
// process whose two ends match the request's.
int socketOf(const httplib::Request& req) {
  DIR* dir = opendir("/proc/self/fd");
  if (dir == nullptr) return -1;
  int found = -1;
  while (const dirent* entry = readdir(dir)) {
    const int fd = std::atoi(entry->d_name);
    struct stat st {};
    if (fd <= 2 || fstat(fd, &st) != 0 || !S_ISSOCK(st.st_mode)) continue;
    std::string peer, local;
    int peerPort = 0, localPort = 0;
    if (endpoint(fd, true, peer, peerPort) && endpoint(fd, false, local, localPort) &&
        peerPort == req.remote_port && peer == req.remote_addr && localPort == req.local_port) {
      found = fd;
      break;
    }
  }
  closedir(dir);
  return found;
}

}  // namespace

bool resetConnection(const httplib::Request& req) {
  const int fd = socketOf(req);
  if (fd < 0) return false;
  // With a zero linger, the last close of a socket sends a reset instead of a goodbye. The
  // socket is swapped for /dev/null under the same number, so that httplib, which still
  // owns that number, writes into nothing and closes that instead.
  const linger now{1, 0};
  setsockopt(fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  const int sink = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (sink < 0) return false;
  const bool swapped = dup2(sink, fd) == fd;
  close(sink);
  return swapped;
}

void setOversizeBody(httplib::Response& res, std::uint64_t bytes, const std::string& type) {
  res.set_content_provider(static_cast<std::size_t>(bytes), type,
                           [bytes](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                             static const std::string zeros(64 * 1024, '\0');
                             const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(
                                 zeros.size(), bytes - static_cast<std::uint64_t>(offset)));
                             return sink.write(zeros.data(), n);
                           });
}

std::optional<std::string> readWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

}  // namespace tovani::adserver
