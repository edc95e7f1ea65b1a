#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "serve/CallThread.h"
#include "serve/Gatekeeper.h"
#include "serve/Http.h"
#include "serve/PictureMaker.h"
#include "serve/Recordings.h"
#include "serve/ServedSensor.h"
#include "serve/StreamHub.h"

namespace tool::serve {

// What is behind the HTTP interface. Requests come on the network's thread; the answer may come
// later, and on another thread.
class Api {
 public:
  struct Parts {
    ServedSensor& sensor;
    PictureMaker& pictures;
    StreamHub& hub;
    Recordings& recordings;
    Gatekeeper& gatekeeper;
    CallThread& sensor_calls;
    CallThread& recording_calls;
  };
  explicit Api(const Parts& parts);

  void Handle(const Request& request, const Respond& respond);
  // Whether the request may open a stream; otherwise the answer.
  std::optional<Response> RefuseStream(const Request& request);

  // For the stream of states.
  Json State() const;

 private:
  using Clock = std::chrono::steady_clock;
  struct Route;
  // `allowed` becomes the methods that the path has.
  static const Route* Find(const Request& request, std::string& allowed);

  void Page(const Request& request, const Respond& respond);
  void OpenApi(const Request& request, const Respond& respond);
  void GetState(const Request& request, const Respond& respond);
  void GetLimits(const Request& request, const Respond& respond);
  void GetSettings(const Request& request, const Respond& respond);
  void PatchSettings(const Request& request, const Respond& respond);
  void PutLaser(const Request& request, const Respond& respond);
  void PutAcquisition(const Request& request, const Respond& respond);
  void PutMode(const Request& request, const Respond& respond);
  void PostTrigger(const Request& request, const Respond& respond);
  void GetStatistics(const Request& request, const Respond& respond);
  void GetRegisters(const Request& request, const Respond& respond);
  void GetCalibration(const Request& request, const Respond& respond);
  void GetSnapshotPng(const Request& request, const Respond& respond);
  void GetSnapshotCsv(const Request& request, const Respond& respond);
  void GetRecordings(const Request& request, const Respond& respond);
  void PostRecording(const Request& request, const Respond& respond);
  void DeleteRecording(const Request& request, const Respond& respond);
  void GetLog(const Request& request, const Respond& respond);
  void GetMetrics(const Request& request, const Respond& respond);

  // Has the sensor's thread make a call that may throw Failure, and answers with what it returns.
  void OnSensor(const Respond& respond, CallThread::Job job);
  void Call(CallThread& thread, int status, const Respond& respond, CallThread::Job job,
            bool urgent = false);
  // Answers with the new state.
  void Switch(const Respond& respond, std::function<void()> call);
  bool TooManyWrites();
  bool IsStuck() const;
  Json Settings() const;

  Parts parts_;
  const Clock::time_point start_ = Clock::now();
  Clock::time_point writes_since_;
  unsigned writes_ = 0;
  std::shared_ptr<std::atomic<bool>> drawing_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace tool::serve
