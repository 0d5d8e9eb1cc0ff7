#include "host/web/access_policy.hpp"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <stdexcept>

namespace clipboard_host::web {

std::string makeToken() {
  std::uint8_t bytes[16];
  std::size_t got = 0;
  while (got < sizeof bytes) {
    ssize_t const n = getrandom(bytes + got, sizeof bytes - got, 0);
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw std::runtime_error("no random bytes for the token");
    }
    got += static_cast<std::size_t>(n);
  }
  static char const digits[] = "0123456789abcdef";
  std::string token;
  for (std::uint8_t b : bytes) {
    token += digits[b >> 4];
    token += digits[b & 15];
  }
  return token;
}

std::string readTokenFile(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    throw std::runtime_error("cannot read the token file " + path);
  }
  std::string line;
  std::getline(in, line);
  auto const isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!line.empty() && isSpace(line.back())) {
    line.pop_back();
  }
  std::size_t start = 0;
  while (start < line.size() && isSpace(line[start])) {
    ++start;
  }
  line.erase(0, start);
  bool const plain = std::all_of(line.begin(), line.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
  });
  if (line.size() < 16 || line.size() > 256 || !plain) {
    throw std::runtime_error("the token in " + path +
                             " must be 16 to 256 characters of A-Z a-z 0-9 . _ ~ -");
  }
  return line;
}

bool sameSecret(std::string_view a, std::string_view b) {
  std::size_t const n = std::max(a.size(), b.size());
  unsigned diff = a.size() == b.size() ? 0u : 1u;
  for (std::size_t i = 0; i < n; ++i) {
    unsigned char const x = i < a.size() ? static_cast<unsigned char>(a[i]) : 0;
    unsigned char const y = i < b.size() ? static_cast<unsigned char>(b[i]) : 0;
    diff |= static_cast<unsigned>(x ^ y);
  }
  return diff == 0;
}

std::string_view targetPath(std::string_view target) {
  return target.substr(0, target.find('?'));
}

std::string_view queryParameter(std::string_view target, std::string_view name, bool* found) {
  if (found != nullptr) {
    *found = false;
  }
  std::size_t const q = target.find('?');
  if (q == std::string_view::npos) {
    return {};
  }
  std::string_view query = target.substr(q + 1);
  query = query.substr(0, query.find('#'));
  while (!query.empty()) {
    std::size_t const amp = query.find('&');
    std::string_view const pair = query.substr(0, amp);
    std::size_t const eq = pair.find('=');
    if (pair.substr(0, eq) == name) {
      if (found != nullptr) {
        *found = true;
      }
      return eq == std::string_view::npos ? std::string_view{} : pair.substr(eq + 1);
    }
    if (amp == std::string_view::npos) {
      break;
    }
    query.remove_prefix(amp + 1);
  }
  return {};
}

AccessPolicy::AccessPolicy(std::string listenHost, unsigned short port, std::string token,
                           std::vector<std::string> extraOrigins, bool loopback)
    : token_(std::move(token)) {
  std::string const portText = ":" + std::to_string(port);
  hosts_.push_back(listenHost + portText);
  if (loopback) {
    hosts_.push_back("localhost" + portText);
  }
  for (auto const& host : hosts_) {
    origins_.push_back("http://" + host);
  }
  for (auto& origin : extraOrigins) {
    origins_.push_back(std::move(origin));
  }
}

namespace {

// Host names compare without regard to case; ports and addresses have none.
bool sameHost(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           auto const lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
           return lower(x) == lower(y);
         });
}

}  // namespace

bool AccessPolicy::hostAllowed(std::string_view hostHeader) const {
  return std::any_of(hosts_.begin(), hosts_.end(),
                     [&](std::string const& h) { return sameHost(h, hostHeader); });
}

bool AccessPolicy::originAllowed(std::string_view origin) const {
  return !origin.empty() && std::any_of(origins_.begin(), origins_.end(),
                                        [&](std::string const& o) { return sameHost(o, origin); });
}

bool AccessPolicy::tokenAllowed(std::string_view token) const {
  return sameSecret(token, token_);
}

std::string AccessPolicy::pageUrl() const {
  return "http://" + hosts_.front() + "/?token=" + token_;
}

}  // namespace clipboard_host::web
