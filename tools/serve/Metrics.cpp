#include "serve/Metrics.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <array>
#include <limits>
#include <string_view>
#include <vector>

#include "serve/Feed.h"
#include "serve/LogLines.h"

namespace tool::serve {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

struct Sample {
  double value;
  std::vector<ClientMetric::Label> labels{};
};

class Page {
 public:
  void Add(MetricType type, const char* name, const char* help,
           const std::vector<Sample>& samples) {
    MetricFamily family{name, help, type, {}};
    for (const Sample& sample : samples) {
      ClientMetric metric;
      metric.label = sample.labels;
      (type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = sample.value;
      family.metric.push_back(std::move(metric));
    }
    families_.push_back(std::move(family));
  }
  void Counter(const char* name, const char* help, double value) {
    Add(MetricType::Counter, name, help, {{value}});
  }
  void Gauge(const char* name, const char* help, double value) {
    Add(MetricType::Gauge, name, help, {{value}});
  }

  void Histogram(const char* name, const char* help, const Feed::Times& times) {
    ClientMetric metric;
    std::uint64_t below = 0;
    for (std::size_t i = 0; i < times.counts.size(); ++i) {
      below += times.counts[i];
      const double bound = i < Feed::kHandlerSeconds.size()
                               ? Feed::kHandlerSeconds[i]
                               : std::numeric_limits<double>::infinity();
      metric.histogram.bucket.push_back({below, bound});
    }
    metric.histogram.sample_count = below;
    metric.histogram.sample_sum = times.seconds;
    families_.push_back({name, help, MetricType::Histogram, {std::move(metric)}});
  }

  std::string Text() const { return prometheus::TextSerializer().Serialize(families_); }

 private:
  std::vector<MetricFamily> families_;
};

double Number(std::uint64_t count) { return static_cast<double>(count); }
double Truth(bool is) { return is ? 1 : 0; }

void AddSensor(Page& page, const MetricsInput& input) {
  const SensorState& state = input.state;
  const Feed::Counts counts = Feed::Instance().counts();
  page.Add(MetricType::Gauge, "tessaline_info", "The sensor; always 1.",
           {{1,
             {{"model", input.model},
              {"version", input.version},
              {"board", input.is_virtual ? "virtual" : "hardware"}}}});
  page.Gauge("tessaline_up", "1 while the sensor answers.", Truth(!state.failure));
  page.Gauge("tessaline_uptime_seconds", "Time since the daemon was started.", input.uptime);
  page.Add(
      MetricType::Counter, "tessaline_frames_total", "Frames that the sensor delivered.",
      {{Number(counts.strips), {{"kind", "strip"}}}, {Number(counts.images), {{"kind", "image"}}}});
  page.Counter("tessaline_received_bytes_total", "Bytes of these frames.", Number(counts.bytes));
  page.Add(MetricType::Counter, "tessaline_frames_lost_total",
           "Frames that never arrived, by cause.",
           {{Number(state.missing_ids), {{"cause", "missing_id"}}},
            {Number(state.malformed), {{"cause", "malformed"}}}});
  page.Counter("tessaline_fpga_frames_dropped_total",
               "Of the missing ones, those that the FPGA had no buffer for.",
               Number(state.fpga_lost));
  page.Counter("tessaline_triggers_lost_total", "Triggers that came before the sensor was ready.",
               Number(state.triggers_lost));
  page.Gauge("tessaline_acquisition_running", "1 while frames are taken.", Truth(state.acquiring));
  page.Gauge("tessaline_laser_on", "1 while the laser is on.", Truth(state.laser));
  page.Counter("tessaline_laser_on_seconds_total", "Time that the laser was on.",
               state.laser_seconds);
  if (state.processor_temperature) {
    page.Add(MetricType::Gauge, "tessaline_temperature_celsius", "Temperatures.",
             {{*state.processor_temperature, {{"place", "processor"}}}});
  }
  page.Histogram("tessaline_handler_duration_seconds",
                 "How long the capture threads were held up by one delivery.",
                 Feed::Instance().times());
  page.Gauge("tessaline_line_points", "Points of the latest profile.",
             Number(input.quality.points));
  page.Gauge("tessaline_line_missing_ratio", "Columns without a point.",
             input.quality.missing_percent / 100);
  page.Gauge("tessaline_line_saturated_ratio", "Points whose peak is white.",
             input.quality.saturated_percent / 100);
  page.Gauge("tessaline_line_peak_mean", "Mean grey value of the peaks, 0 to 255.",
             input.quality.mean_peak);
}

void AddClients(Page& page, const MetricsInput& input, const StreamHub& hub) {
  struct Named {
    Stream stream;
    const char* name;
  };
  constexpr std::array kStreams{Named{Stream::kProfile, "profile"}, Named{Stream::kImage, "image"},
                                Named{Stream::kState, "state"}};
  struct Figure {
    const char* name;
    const char* help;
    std::uint64_t StreamCounts::*count;
  };
  constexpr std::array kFigures{
      Figure{"tessaline_stream_messages_total", "Messages sent to clients.", &StreamCounts::sent},
      Figure{"tessaline_stream_bytes_total", "Bytes of these.", &StreamCounts::sent_bytes},
      Figure{"tessaline_stream_dropped_messages_total",
             "Messages that newer ones overtook because a client was slow.",
             &StreamCounts::dropped},
      Figure{"tessaline_stream_dropped_bytes_total", "Bytes of these.",
             &StreamCounts::dropped_bytes}};
  for (const Figure& figure : kFigures) {
    std::vector<Sample> samples;
    for (const Named& stream : kStreams) {
      samples.push_back(
          {Number(hub.counts(stream.stream).*figure.count), {{"stream", stream.name}}});
    }
    page.Add(MetricType::Counter, figure.name, figure.help, samples);
  }
  page.Gauge("tessaline_stream_clients", "Connected clients of streams.", Number(input.clients));
  page.Gauge("tessaline_recorders", "Processes that take every frame.", Number(input.recorders));
  page.Counter("tessaline_recorder_frames_dropped_total",
               "Frames that such a process had no room for.",
               Number(Feed::Instance().DroppedByTaps()));
  page.Add(MetricType::Counter, "tessaline_log_lines_total", "Lines of the log, by level.",
           {{Number(LogLines::Instance().Warnings()), {{"level", "warning"}}},
            {Number(LogLines::Instance().Errors()), {{"level", "error"}}}});
}

}  // namespace

std::string MetricsText(const MetricsInput& input, const StreamHub& hub) {
  Page page;
  AddSensor(page, input);
  AddClients(page, input, hub);
  return page.Text();
}

}  // namespace tool::serve
