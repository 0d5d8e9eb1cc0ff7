// Who may talk to the WebSocket host: the token, the Host and Origin headers.
//
// Any page in the user's browser can open a socket to a loopback port, and the clipboard holds
// passwords, so a connection needs all three: the token handed out on standard error (or read
// from a file), an Origin the host serves or was told to trust, and a Host header naming the
// listen address, which also defeats DNS rebinding (a rebound name arrives as its own Host).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace clipboard_host::web {

// 128 random bits as 32 lower-case hex digits, from the kernel's random source.
std::string makeToken();

// A token read from a file: the first line without surrounding white space. Throws
// std::runtime_error when the file cannot be read or the token is shorter than 16 characters
// or holds characters outside [A-Za-z0-9._~-] (it travels unencoded in a URL).
std::string readTokenFile(std::string const& path);

// Compares in time that depends on the lengths only, never on where the texts differ.
bool sameSecret(std::string_view a, std::string_view b);

// The value of `name` in the query of a request target ("/ws?token=abc"), undecoded; empty
// when absent. `found` tells an empty value from a missing one.
std::string_view queryParameter(std::string_view target, std::string_view name,
                                bool* found = nullptr);

// The path of a request target, without the query.
std::string_view targetPath(std::string_view target);

class AccessPolicy {
 public:
  // `listenHost` is the address as it appears in a Host header ("127.0.0.1", "[::1]").
  AccessPolicy(std::string listenHost, unsigned short port, std::string token,
               std::vector<std::string> extraOrigins, bool loopback);

  // The Host header names the listen address and port (or localhost:port on loopback).
  bool hostAllowed(std::string_view hostHeader) const;
  // The Origin header is one of the host's own origins or one named with --allow-origin.
  bool originAllowed(std::string_view origin) const;
  bool tokenAllowed(std::string_view token) const;

  std::string const& token() const { return token_; }
  // The page's address, token included.
  std::string pageUrl() const;

 private:
  std::vector<std::string> hosts_;
  std::vector<std::string> origins_;
  std::string token_;
};

}  // namespace clipboard_host::web
