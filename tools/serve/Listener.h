#pragma once

#include <functional>
#include <memory>
#include <string>

#include "serve/Network.h"

namespace boost::asio::ssl {
class context;
}

namespace tool::serve {

// Where browsers and programs reach the daemon.
struct Place {
  std::string address = "127.0.0.1";
  unsigned short port = 0;  // 0: any
  std::string certificate;  // files; empty: without TLS
  std::string key;

  bool IsLoopback() const;
};

// Accepts connections, at a TCP port and at a Unix socket. Throws a Failure if that is impossible.
class Listener {
 public:
  Listener(const Place& place, const std::string& socket, const Services& services);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  void Start();
  void Stop();
  // "http://127.0.0.1:8080/"
  std::string Url() const;

 private:
  struct Doors;
  void AcceptTcp();
  void AcceptSocket();
  void Pause(std::function<void()> then);
  void OpenSocket();
  // Whether there is room for one more connection.
  bool HasRoom() const;

  const Place place_;
  const std::string path_;
  const Services services_;
  std::unique_ptr<Doors> doors_;
  // Each connection holds a copy.
  std::shared_ptr<void> connections_ = std::make_shared<int>(0);
  std::shared_ptr<void> local_connections_ = std::make_shared<int>(0);
};

}  // namespace tool::serve
