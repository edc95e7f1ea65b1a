#include "serve/Api.h"

#include <array>
#include <string_view>
#include <thread>

#include "Failure.h"
#include "Interrupt.h"
#include "Laser.h"
#include "RecipeText.h"
#include "Registers.h"
#include "serve/Assets.h"
#include "serve/Limits.h"
#include "serve/LogLines.h"
#include "serve/Metrics.h"
#include "serve/Snapshot.h"
#include "serve/StateJson.h"

namespace tool::serve {
namespace {

constexpr std::string_view kRegisters = "/api/v1/registers/";
constexpr unsigned kMostWritesASecond = 100;
constexpr double kMostLaserSeconds = 3600;
constexpr std::size_t kLogLines = 500;
constexpr int kDeepest = 4;
constexpr std::chrono::seconds kStuck{5};
constexpr const char* kNoAnswer = "the sensor does not answer";

Failure BadRequest(const std::string& what, const std::string& next) {
  return {ExitCode::kUsage, what, next};
}

// A request's body. Nothing that we take is deeper than a list in an object in an object.
Json BodyOf(const Request& request) {
  const auto shallow = [](int depth, Json::parse_event_t, Json&) {
    if (depth > kDeepest) throw BadRequest("the body is nested too deeply", "send a JSON object");
    return true;
  };
  Json body = Json::parse(request.body, shallow, /*allow_exceptions=*/false);
  if (!body.is_object())
    throw BadRequest("the body is no JSON object", "for example {\"on\": true}");
  return body;
}

bool SwitchIn(const Json& body, std::size_t members = 1) {
  if (body.size() > members) throw BadRequest("the body has unknown members", "send \"on\" alone");
  if (body.size() != members || !body.contains("on") || !body["on"].is_boolean()) {
    throw BadRequest("the body says neither on nor off", "send {\"on\": true} or {\"on\": false}");
  }
  return body["on"];
}

// {"on": true, "seconds": 5}; nothing: until it is switched off.
std::optional<double> SecondsIn(const Json& body) {
  if (!body.contains("seconds")) return std::nullopt;
  const Json& seconds = body["seconds"];
  const bool good = seconds.is_number() && seconds > 0 && seconds <= kMostLaserSeconds &&
                    body.contains("on") && body["on"] == true;
  if (!good) {
    throw BadRequest("seconds is wrong",
                     fmt::format("with \"on\": true, a number above 0 and up to "
                                 "{}",
                                 kMostLaserSeconds));
  }
  return seconds;
}

// Settings as a client may send them: with or without the version of a recipe, one exposure or
// several, null for what it does not want to change.
Recipe RecipeIn(const Request& request, const Model& model) {
  const Json body = BodyOf(request);
  Json recipe{{"recipe", 1}, {"model", model.code()}};
  for (const auto& [key, value] : body.items()) {
    if (value.is_null()) continue;
    recipe[key] = key == setting::kExposure.key && value.is_number() ? Json::array({value}) : value;
  }
  return ParseRecipe(recipe.dump(-1, ' ', true, Json::error_handler_t::replace), {}, model);
}

int StatusOf(ExitCode code) {
  switch (code) {
    case ExitCode::kUsage:
      return 422;
    case ExitCode::kNegative:
      return 409;
    case ExitCode::kUnreachable:
      return 503;
    default:
      return 500;
  }
}

Response ResponseTo(const std::exception_ptr& failure, const Model& model) {
  try {
    std::rethrow_exception(failure);
  } catch (const Failure& error) {
    Json json;
    AddTo(json, error);
    if (error.code() == ExitCode::kUsage) json["limits"] = LimitsJson(model);
    return JsonResponse(StatusOf(error.code()), json);
  } catch (const std::exception& error) {
    return ErrorResponse(500, error.what());
  }
}

}  // namespace

struct Api::Route {
  std::string_view method;
  std::string_view path;  // with "/" at its end: everything below
  bool writes;
  void (Api::*handle)(const Request&, const Respond&);
};

const Api::Route* Api::Find(const Request& request, std::string& allowed) {
  static constexpr std::array kRoutes{
      Route{"GET", "/", false, &Api::Page},
      Route{"GET", "/api/v1/openapi.json", false, &Api::OpenApi},
      Route{"GET", "/api/v1/state", false, &Api::GetState},
      Route{"GET", "/api/v1/limits", false, &Api::GetLimits},
      Route{"GET", "/api/v1/settings", false, &Api::GetSettings},
      Route{"PATCH", "/api/v1/settings", true, &Api::PatchSettings},
      Route{"PUT", "/api/v1/laser", true, &Api::PutLaser},
      Route{"PUT", "/api/v1/acquisition", true, &Api::PutAcquisition},
      Route{"PUT", "/api/v1/mode", true, &Api::PutMode},
      Route{"POST", "/api/v1/trigger", true, &Api::PostTrigger},
      Route{"GET", "/api/v1/statistics", false, &Api::GetStatistics},
      Route{"GET", "/api/v1/registers", false, &Api::GetRegisters},
      Route{"GET", kRegisters, false, &Api::GetRegisters},
      Route{"GET", "/api/v1/calibration", false, &Api::GetCalibration},
      Route{"GET", "/api/v1/snapshot.png", false, &Api::GetSnapshotPng},
      Route{"GET", "/api/v1/snapshot.csv", false, &Api::GetSnapshotCsv},
      Route{"GET", "/api/v1/recordings", false, &Api::GetRecordings},
      Route{"POST", "/api/v1/recordings", true, &Api::PostRecording},
      Route{"DELETE", "/api/v1/recordings/current", true, &Api::DeleteRecording},
      Route{"GET", "/api/v1/log", false, &Api::GetLog},
      Route{"GET", "/metrics", false, &Api::GetMetrics},
  };
  for (const Route& route : kRoutes) {
    const bool below = route.path.size() > 1 && route.path.ends_with('/');
    if (below ? !request.path.starts_with(route.path) : request.path != route.path) continue;
    allowed += fmt::format("{}{}", allowed.empty() ? "" : ", ", route.method);
    if (request.method == route.method || (request.method == "HEAD" && route.method == "GET")) {
      return &route;
    }
  }
  return nullptr;
}

Api::Api(const Parts& parts) : parts_(parts) {}

void Api::Handle(const Request& request, const Respond& respond) {
  std::string allowed;
  const Route* const route = Find(request, allowed);
  // The page holds nothing that is secret, and somebody without the token must be told so by it.
  const bool is_page = route != nullptr && route->path == "/" && request.origin.empty();
  if (!is_page) {
    if (auto refused = parts_.gatekeeper.Refuse(request, route != nullptr && route->writes)) {
      return respond(std::move(*refused));
    }
  }
  if (route == nullptr && !allowed.empty()) {
    Response response =
        ErrorResponse(405, fmt::format("{} has no {}", request.path, request.method));
    response.headers["Allow"] = allowed;
    return respond(std::move(response));
  }
  if (route == nullptr) {
    return respond(ErrorResponse(404, fmt::format("there is no {}", request.path),
                                 "/api/v1/openapi.json lists what there is"));
  }
  const bool switches_laser = route->handle == &Api::PutLaser;
  if (route->writes && !switches_laser && TooManyWrites()) {
    Response response = ErrorResponse(429, "too many requests", "send fewer a second");
    response.headers["Retry-After"] = "1";
    return respond(std::move(response));
  }
  try {
    (this->*route->handle)(request, respond);
  } catch (...) {
    respond(ResponseTo(std::current_exception(), parts_.sensor.model()));
  }
}

std::optional<Response> Api::RefuseStream(const Request& request) {
  return parts_.gatekeeper.Refuse(request, /*writes=*/false);
}

bool Api::TooManyWrites() {
  const auto now = Clock::now();
  if (now - writes_since_ > std::chrono::seconds(1)) {
    writes_since_ = now;
    writes_ = 0;
  }
  return ++writes_ > kMostWritesASecond;
}

void Api::Call(CallThread& thread, int status, const Respond& respond, CallThread::Job job,
               bool urgent) {
  const auto busy = thread.BusyFor();
  if (busy && *busy > kStuck && !urgent) {
    return respond(ErrorResponse(503, "the sensor does not answer", "see the log"));
  }
  const bool posted = thread.Post(
      std::move(job),
      [this, status, respond](const Json& answer, std::exception_ptr failure) {
        respond(failure ? ResponseTo(failure, parts_.sensor.model())
                        : JsonResponse(status, answer));
      },
      urgent);
  if (posted) return;
  Response response = ErrorResponse(429, "too many requests wait for the sensor", "try again");
  response.headers["Retry-After"] = "1";
  respond(std::move(response));
}

void Api::OnSensor(const Respond& respond, CallThread::Job job) {
  Call(parts_.sensor_calls, 200, respond, std::move(job));
}

void Api::Switch(const Respond& respond, std::function<void()> call) {
  OnSensor(respond, [this, call = std::move(call)] {
    call();
    return SensorJson(parts_.sensor, parts_.pictures);
  });
}

void Api::Page(const Request&, const Respond& respond) {
  Response response{200, "text/html; charset=utf-8", std::string(assets::Page())};
  response.headers["Content-Security-Policy"] = fmt::format(
      "default-src 'none'; script-src '{}'; style-src 'unsafe-inline'; img-src 'self' "
      "data: blob:; connect-src 'self'; form-action 'none'; frame-ancestors 'none'; "
      "base-uri 'none'",
      assets::PageScriptHash());
  respond(std::move(response));
}

void Api::OpenApi(const Request&, const Respond& respond) {
  respond({200, "application/json", std::string(assets::OpenApi())});
}

bool Api::IsStuck() const {
  const auto busy = parts_.sensor_calls.BusyFor();
  return busy && *busy > kStuck;
}

Json Api::State() const {
  Json json = SensorJson(parts_.sensor, parts_.pictures);
  json["recording"] = parts_.recordings.Current();
  json["recording_failure"] = parts_.recordings.WhyEnded();
  json["recordings_possible"] = parts_.recordings.possible();
  json["clients"] = ClientsJson(parts_.hub);
  json["uptime"] = std::chrono::duration<double>(Clock::now() - start_).count();
  if (IsStuck()) {
    json["ready"] = false;
    json["failure"] = kNoAnswer;
  }
  return json;
}

void Api::GetState(const Request&, const Respond& respond) { respond(JsonResponse(200, State())); }

void Api::GetLimits(const Request&, const Respond& respond) {
  respond(JsonResponse(200, LimitsJson(parts_.sensor.model())));
}

Json Api::Settings() const {
  Json json{{"recipe", 1}, {"model", parts_.sensor.model().code()}};
  const Json settings = SettingsJson(parts_.sensor.state().settings);
  for (const auto& [key, value] : settings.items()) {
    if (!value.is_null()) json[key] = value;
  }
  return json;
}

void Api::GetSettings(const Request&, const Respond& respond) {
  respond(JsonResponse(200, Settings()));
}

void Api::PatchSettings(const Request& request, const Respond& respond) {
  const Recipe recipe = RecipeIn(request, parts_.sensor.model());
  // An order to switch the laser off, in the meantime, also voids "on" in a recipe.
  OnSensor(respond, [this, recipe, orders = parts_.sensor.off_orders()] {
    parts_.sensor.Change(recipe, orders);
    return Settings();
  });
}

void Api::PutLaser(const Request& request, const Respond& respond) {
  const Json body = BodyOf(request);
  const auto seconds = SecondsIn(body);
  const bool on = SwitchIn(body, seconds ? 2 : 1);
  if (on) {
    return Switch(respond, [this, seconds, orders = parts_.sensor.off_orders()] {
      parts_.sensor.SwitchLaserOn(orders, seconds);
    });
  }
  // Off waits for nobody, and what was asked before is void. The rest is for the books.
  parts_.sensor.CountOffOrder();
  if (!laser::Off()) throw Failure(ExitCode::kNegative, "the laser cannot be switched off");
  Call(
      parts_.sensor_calls, 200, respond,
      [this] {
        parts_.sensor.SwitchLaserOff();
        return SensorJson(parts_.sensor, parts_.pictures);
      },
      /*urgent=*/true);
}

void Api::PutAcquisition(const Request& request, const Respond& respond) {
  Switch(respond, [this, on = SwitchIn(BodyOf(request))] { parts_.sensor.SwitchAcquisition(on); });
}

void Api::PutMode(const Request& request, const Respond& respond) {
  const Json body = BodyOf(request);
  const bool known = body.size() == 1 && body.contains("mode") &&
                     (body["mode"] == "strips" || body["mode"] == "images");
  if (!known)
    throw BadRequest("there is no such mode", "send {\"mode\": \"strips\"} or \"images\"");
  Switch(respond, [this, images = body["mode"] == "images"] { parts_.sensor.SwitchMode(images); });
}

void Api::PostTrigger(const Request&, const Respond& respond) {
  OnSensor(respond, [this]() -> Json {
    parts_.sensor.Trigger();
    return {{"triggered", true}};
  });
}

void Api::GetStatistics(const Request&, const Respond& respond) {
  OnSensor(respond, [] { return StatisticsJson(); });
}

void Api::GetRegisters(const Request& request, const Respond& respond) {
  const std::string name =
      request.path.starts_with(kRegisters) ? request.path.substr(kRegisters.size()) : "";
  OnSensor(respond, [this, name]() -> Json {
    const Registers registers(parts_.sensor.model());
    const auto describe = [&](const fpga::Register& reg) {
      return registers.AsJson(reg, registers.Read(reg));
    };
    if (!name.empty()) return describe(registers.Find(name).reg);
    Json list = Json::array();
    for (const fpga::Register& reg : registers.All()) list.push_back(describe(reg));
    return {{"registers", list}};
  });
}

void Api::GetCalibration(const Request&, const Respond& respond) {
  OnSensor(respond, [this] { return parts_.sensor.Calibration(); });
}

void Api::GetSnapshotPng(const Request&, const Respond& respond) {
  auto newest = parts_.pictures.newest();
  if (!newest) return respond(ErrorResponse(404, "no frame has come yet"));
  // A large picture takes a while, so it is drawn beside everything else, one at a time.
  if (drawing_->exchange(true)) {
    Response response = ErrorResponse(429, "another snapshot is being drawn", "try again");
    response.headers["Retry-After"] = "1";
    return respond(std::move(response));
  }
  const SignalsBlocked inherited;
  const auto draw = [drawing = drawing_, respond, newest = std::move(*newest)] {
    Response response;
    try {
      response = {200, "image/png", SnapshotPng(newest)};
    } catch (const std::exception& error) {
      response = ErrorResponse(500, error.what());
    }
    *drawing = false;  // before the answer, after which the next request may come
    respond(std::move(response));
  };
  try {
    std::thread(draw).detach();
  } catch (const std::system_error& error) {
    *drawing_ = false;
    respond(ErrorResponse(500, error.what()));
  }
}

void Api::GetSnapshotCsv(const Request&, const Respond& respond) {
  const auto newest = parts_.pictures.newest();
  if (!newest || !newest->image.empty()) {
    return respond(ErrorResponse(404, "there is no profile", "switch the mode to strips"));
  }
  respond({200, "text/csv", SnapshotCsv(*newest)});
}

void Api::GetRecordings(const Request&, const Respond& respond) {
  respond(JsonResponse(200, parts_.recordings.List()));
}

void Api::PostRecording(const Request&, const Respond& respond) {
  Call(parts_.recording_calls, 201, respond, [this] { return parts_.recordings.Start(); });
}

void Api::DeleteRecording(const Request&, const Respond& respond) {
  Call(parts_.recording_calls, 200, respond, [this] { return parts_.recordings.Stop(); });
}

void Api::GetLog(const Request&, const Respond& respond) {
  std::uint64_t from = 0;
  respond(JsonResponse(200, {{"lines", LogLines::Instance().Since(from, kLogLines)}}));
}

void Api::GetMetrics(const Request&, const Respond& respond) {
  MetricsInput input;
  input.state = parts_.sensor.state();
  if (IsStuck()) input.state.failure = kNoAnswer;
  input.quality = parts_.pictures.quality();
  input.model = parts_.sensor.model().code();
  input.version = TESSALINE_VERSION;
  input.is_virtual = parts_.sensor.session().on_virtual_board();
  input.clients = parts_.hub.clients().size();
  input.recorders = Feed::Instance().TapCount();
  input.uptime = std::chrono::duration<double>(Clock::now() - start_).count();
  respond({200, "text/plain; version=0.0.4", MetricsText(input, parts_.hub)});
}

}  // namespace tool::serve
