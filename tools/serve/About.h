#pragma once

#include "Command.h"

namespace tool::serve {

// For the help of the command, and of the program that carries it out.
inline constexpr About kServeAbout{
    "serve", "Shows the sensor in a browser, takes settings, counts for monitoring",
    Touches::kLight,
    "Owns the sensor until Ctrl-C and serves a page with profile, height map, image, settings and "
    "log; streams and an interface for programs (/api/v1/openapi.json); and figures for Prometheus "
    "(/metrics). While it runs, the other commands act on its sensor. It listens on this machine "
    "only, unless --listen and --token-file say otherwise. Whatever writes or drives the laser "
    "needs the token. The laser is off at the start, unless --laser on is given or the board is "
    "virtual, and off when the daemon ends, whatever ended it.",
    "  tessaline serve --virtual K3610\n"
    "  tessaline serve --model K3610 --laser on --recipe belt.json --recordings /data\n"
    "  tessaline serve --model K3610 --listen 0.0.0.0 --token-file token --certificate c.pem "
    "--key k.pem"};

}  // namespace tool::serve
