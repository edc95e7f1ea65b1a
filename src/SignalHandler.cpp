#include <signal.h>

#include "tessaline/signal_handler.h"

namespace VeltranoSDK {

SignalHandler::SignalHandler() = default;

SignalHandler::~SignalHandler() = default;

void SignalHandler::handleSignal(int /*signal*/) {}

int SignalHandler::install() {
  struct sigaction action {};
  action.sa_handler = handleSignal;
  sigemptyset(&action.sa_mask);
  return sigaction(SIGINT, &action, nullptr);
}

}  // namespace VeltranoSDK
