#include "serve/ServeOptions.h"

namespace tool::serve {
namespace {

constexpr About kServeAbout{
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

}  // namespace

CLI::App& ServeOptions::Describe(CLI::App& parent, CommonOptions& common) {
  CLI::App& app = AddCommand(parent, kServeAbout, common);
  app.add_option("--listen", address, "Address to listen on")
      ->type_name("ADDRESS")
      ->capture_default_str();
  app.add_option("--port", port, "Port to listen on; 0: any that is free")
      ->type_name("PORT")
      ->capture_default_str();
  app.add_option("--token-file", token_file,
                 "File with the token that allows to write (default: a new one)")
      ->type_name("FILE");
  app.add_option("--certificate", certificate, "Certificate for TLS, a PEM file")
      ->type_name("FILE");
  app.add_option("--key", key, "Its private key, a PEM file")->type_name("FILE");
  app.add_option("--host", hosts,
                 "A name by which browsers reach the daemon, besides its addresses")
      ->type_name("NAME");
  app.add_option("--recordings", recordings, "Folder for recordings that are started from the page")
      ->type_name("FOLDER");
  // What the daemon starts beside itself; not in the help.
  app.add_flag("--guard", guard)->group("");
  acquisition.Describe(app);
  app.get_option("--laser")->default_str("off; on a virtual board on");
  measuring.Describe(app);
  return app;
}

}  // namespace tool::serve
