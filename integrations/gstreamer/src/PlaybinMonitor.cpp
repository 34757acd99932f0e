#include "tav/gstreamer/PlaybinMonitor.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include "ViewReporter.h"

namespace tav::gstreamer {
namespace {

using Clock = std::chrono::steady_clock;

// The core is called from one thread at a time, whatever the number of monitors.
std::mutex& facadeMutex() {
  static std::mutex mutex;
  return mutex;
}

constexpr std::size_t kMaxPlaylistBytes = std::size_t{256} * 1024;

std::int64_t wallNowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

/// A GStreamer monotonic timestamp (gst_util_get_timestamp, ns) as wall-clock ms.
std::int64_t wallMsOf(GstClockTime monotonicNs) {
  const GstClockTime now = gst_util_get_timestamp();
  const auto ageNs = static_cast<std::int64_t>(now) - static_cast<std::int64_t>(monotonicNs);
  return wallNowMs() - ageNs / 1'000'000;
}

PipelineState stateOf(GstState state) {
  switch (state) {
    case GST_STATE_NULL:
      return PipelineState::Null;
    case GST_STATE_READY:
      return PipelineState::Ready;
    case GST_STATE_PAUSED:
      return PipelineState::Paused;
    case GST_STATE_PLAYING:
      return PipelineState::Playing;
    case GST_STATE_VOID_PENDING:
      break;
  }
  return PipelineState::VoidPending;
}

std::string text(const gchar* s) {
  return s != nullptr ? std::string(s) : std::string();
}

// What the GStreamer threads saw, copied out for the integration thread.
struct UriChanged {
  std::string uri;
};
struct StateChanged {
  PipelineState old, current, pending;
  std::int64_t atMs;
};
struct Buffering {
  int percent;
  std::int64_t atMs;
};
struct SeekStarted {};
struct AsyncDone {};
struct EndOfStream {};
struct DurationChanged {};
struct ErrorSeen {
  std::string code, message;
};
struct VideoCaps {
  int width, height;
  std::optional<double> frameRate;
};
struct PlaylistBytes {
  std::string uri, bytes;
};
struct ManifestStats {
  std::string uri;
  std::int64_t endMs;
};
struct VariantStats {
  std::string uri;
  std::int64_t bitrate;
};
struct Detach {};
using Observation =
    std::variant<UriChanged, StateChanged, Buffering, SeekStarted, AsyncDone, EndOfStream,
                 DurationChanged, ErrorSeen, VideoCaps, PlaylistBytes, ManifestStats, VariantStats,
                 HttpResponse, SegmentDownload, Detach>;

/// The queue between GStreamer's threads and the integration thread. Shared by
/// every callback registration, so a late callback finds it alive (and closed).
class Inbox {
 public:
  void push(Observation observation) {
    {
      std::lock_guard lock(_mutex);
      if (_closed) return;
      _queue.push_back(std::move(observation));
    }
    _changed.notify_one();
  }
  /// Waits until something arrives or `deadline`; answers what arrived.
  std::deque<Observation> takeUntil(Clock::time_point deadline) {
    std::unique_lock lock(_mutex);
    _changed.wait_until(lock, deadline, [&] { return !_queue.empty(); });
    return std::exchange(_queue, {});
  }
  void close() {
    std::lock_guard lock(_mutex);
    _closed = true;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<Observation> _queue;
  bool _closed = false;
};

using InboxRef = std::shared_ptr<Inbox>;

/// Callback data: a reference to the inbox, released by GLib when the
/// registration goes away.
gpointer inboxData(const InboxRef& inbox) {
  return new InboxRef(inbox);
}
void releaseInboxData(gpointer data) {
  delete static_cast<InboxRef*>(data);
}
void releaseInboxClosure(gpointer data, GClosure* /*closure*/) {
  releaseInboxData(data);
}
Inbox& inboxOf(gpointer data) {
  return **static_cast<InboxRef*>(data);
}

// --- callbacks (GStreamer threads) ---------------------------------------------

void onElementMessage(Inbox& inbox, GstMessage* message) {
  const GstStructure* s = gst_message_get_structure(message);
  if (s == nullptr) return;
  if (gst_structure_has_name(s, "http-headers")) {
    guint status = 0;
    gst_structure_get_uint(s, "http-status-code", &status);
    HttpResponse response;
    response.uri = text(gst_structure_get_string(s, "uri"));
    if (const gchar* redirected = gst_structure_get_string(s, "redirection-uri"))
      response.uri = redirected;
    response.status = static_cast<int>(status);
    response.atMs = wallNowMs();
    inbox.push(std::move(response));
  } else if (gst_structure_has_name(s, "adaptive-streaming-statistics")) {
    const std::string uri = text(gst_structure_get_string(s, "uri"));
    guint64 stop = 0;
    guint64 downloadTime = 0;
    guint64 size = 0;
    gint bitrate = 0;
    if (gst_structure_get_uint64(s, "fragment-stop-time", &stop) &&
        gst_structure_get_uint64(s, "fragment-download-time", &downloadTime) &&
        gst_structure_get_uint64(s, "fragment-size", &size)) {
      // "fragment-start-time" is in microseconds while the stop time is in
      // nanoseconds: derive the start from the download time instead.
      SegmentDownload download;
      download.uri = uri;
      download.endMs = wallMsOf(stop);
      download.startMs = wallMsOf(stop - std::min(stop, downloadTime));
      download.bytes = static_cast<std::int64_t>(size);
      inbox.push(std::move(download));
    } else if (gst_structure_get_uint64(s, "manifest-download-stop", &stop)) {
      inbox.push(ManifestStats{uri, wallMsOf(stop)});
    } else if (gst_structure_get_int(s, "bitrate", &bitrate)) {
      inbox.push(VariantStats{uri, bitrate});
    }
  }
}

// Messages of the playbin itself (its children post state changes too).
void onPipelineMessage(Inbox& inbox, GstMessage* message) {
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_STATE_CHANGED: {
      GstState old = GST_STATE_VOID_PENDING;
      GstState current = GST_STATE_VOID_PENDING;
      GstState pending = GST_STATE_VOID_PENDING;
      gst_message_parse_state_changed(message, &old, &current, &pending);
      inbox.push(StateChanged{stateOf(old), stateOf(current), stateOf(pending), wallNowMs()});
      break;
    }
    case GST_MESSAGE_ASYNC_DONE:
      inbox.push(AsyncDone{});
      break;
    case GST_MESSAGE_EOS:
      inbox.push(EndOfStream{});
      break;
    default:
      break;
  }
}

/// Data of the bus handler: the inbox, and the playbin to tell its own messages
/// apart (compared, never dereferenced).
struct BusWatch {
  InboxRef inbox;
  const void* playbin;
};

// Runs on the thread that posts the message: copy, queue, return.
void onSyncMessage(GstBus* /*bus*/, GstMessage* message, gpointer data) {
  const auto* watch = static_cast<const BusWatch*>(data);
  Inbox& inbox = *watch->inbox;
  if (static_cast<const void*>(GST_MESSAGE_SRC(message)) == watch->playbin) {
    onPipelineMessage(inbox, message);
  }
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ELEMENT:
      onElementMessage(inbox, message);
      break;
    case GST_MESSAGE_DURATION_CHANGED:  // posted by the source or the demuxer
      inbox.push(DurationChanged{});
      break;
    case GST_MESSAGE_BUFFERING: {
      gint percent = 0;
      gst_message_parse_buffering(message, &percent);
      inbox.push(Buffering{percent, wallNowMs()});
      break;
    }
    case GST_MESSAGE_ERROR: {
      GError* error = nullptr;
      gchar* debug = nullptr;
      gst_message_parse_error(message, &error, &debug);
      if (error != nullptr) {
        inbox.push(ErrorSeen{errorCode(g_quark_to_string(error->domain), error->code),
                             errorMessage(text(error->message))});
        g_error_free(error);
      }
      g_free(debug);
      break;
    }
    default:
      break;
  }
}

std::optional<VideoCaps> videoCapsOf(GstCaps* caps) {
  if (caps == nullptr || gst_caps_get_size(caps) == 0) return std::nullopt;
  const GstStructure* s = gst_caps_get_structure(caps, 0);
  gint width = 0;
  gint height = 0;
  if (!gst_structure_get_int(s, "width", &width) || !gst_structure_get_int(s, "height", &height))
    return std::nullopt;
  VideoCaps result{width, height, std::nullopt};
  gint num = 0;
  gint den = 0;
  if (gst_structure_get_fraction(s, "framerate", &num, &den) && num > 0 && den > 0)
    result.frameRate = static_cast<double>(num) / static_cast<double>(den);
  return result;
}

GstPadProbeReturn onSinkPadEvent(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data) {
  GstEvent* event = gst_pad_probe_info_get_event(info);
  if (event == nullptr) return GST_PAD_PROBE_OK;
  if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    if (auto format = videoCapsOf(caps)) inboxOf(data).push(*format);
  } else if (GST_EVENT_TYPE(event) == GST_EVENT_SEEK) {
    inboxOf(data).push(SeekStarted{});
  }
  return GST_PAD_PROBE_OK;
}

// The first bytes the playbin's source downloads: kept when they are a playlist.
struct PlaylistCapture {
  InboxRef inbox;
  std::string uri;
  std::size_t seen = 0;
};

GstPadProbeReturn onSourceBuffer(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data) {
  auto* capture = static_cast<PlaylistCapture*>(data);
  GstBuffer* buffer = gst_pad_probe_info_get_buffer(info);
  if (buffer == nullptr) return GST_PAD_PROBE_OK;
  GstMapInfo map;
  if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return GST_PAD_PROBE_OK;
  std::string bytes(reinterpret_cast<const char*>(map.data), map.size);
  gst_buffer_unmap(buffer, &map);
  if (capture->seen == 0 && bytes.find("#EXTM3U") == std::string::npos) return GST_PAD_PROBE_REMOVE;
  capture->seen += bytes.size();
  capture->inbox->push(PlaylistBytes{capture->uri, std::move(bytes)});
  return capture->seen >= kMaxPlaylistBytes ? GST_PAD_PROBE_REMOVE : GST_PAD_PROBE_OK;
}

void onSourceSetup(GstElement* /*playbin*/, GstElement* source, gpointer data) {
  GstPad* pad = gst_element_get_static_pad(source, "src");
  if (pad == nullptr) return;
  auto* capture = new PlaylistCapture{*static_cast<InboxRef*>(data), {}, 0};
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(source), "location") != nullptr) {
    gchar* location = nullptr;
    g_object_get(source, "location", &location, nullptr);
    capture->uri = text(location);
    g_free(location);
  }
  gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, onSourceBuffer, capture,
                    [](gpointer p) { delete static_cast<PlaylistCapture*>(p); });
  gst_object_unref(pad);
}

void onUriNotify(GObject* playbin, GParamSpec* /*property*/, gpointer data) {
  gchar* uri = nullptr;
  g_object_get(playbin, "uri", &uri, nullptr);
  if (uri != nullptr) inboxOf(data).push(UriChanged{uri});
  g_free(uri);
}

}  // namespace

// --- the monitor -----------------------------------------------------------------

struct PlaybinMonitor::Impl {
  Impl(GstElement* element, std::string name, PlaybinMetadata meta)
      : playbin(GST_ELEMENT(gst_object_ref(element))),
        bus(gst_element_get_bus(element)),
        playerName(std::move(name)),
        metadata(std::move(meta)) {}

  GstElement* playbin;
  GstBus* bus;
  std::string playerName;
  PlaybinMetadata metadata;
  InboxRef inbox = std::make_shared<Inbox>();
  std::vector<gulong> busHandlers;
  std::vector<gulong> playbinHandlers;
  struct Probe {
    GstPad* pad;
    gulong id;
  };
  std::mutex probesMutex;
  std::vector<Probe> probes;
  std::thread thread;
  bool detached = false;

  void start();
  void stop();
  void run();
  void watchSinkPad();
  void dispatch(const TAVSDKEventPtr& event) const;
  std::optional<std::int64_t> position() const;
  std::optional<std::int64_t> durationMs() const;
};

void PlaybinMonitor::Impl::dispatch(const TAVSDKEventPtr& event) const {
  std::lock_guard lock(facadeMutex());
  TAVSDKCore::dispatchEventForPlayer(event, playerName);
}

std::optional<std::int64_t> PlaybinMonitor::Impl::position() const {
  gint64 ns = 0;
  if (!gst_element_query_position(playbin, GST_FORMAT_TIME, &ns) || ns < 0) return std::nullopt;
  return ns / 1'000'000;
}

std::optional<std::int64_t> PlaybinMonitor::Impl::durationMs() const {
  gint64 ns = 0;
  if (!gst_element_query_duration(playbin, GST_FORMAT_TIME, &ns) || ns <= 0) return std::nullopt;
  return ns / 1'000'000;
}

// Seeks travel upstream through the video sink's pad and its caps are the
// format shown; the sink exists once the playbin has chosen it.
void PlaybinMonitor::Impl::watchSinkPad() {
  GstElement* sink = nullptr;
  g_object_get(playbin, "video-sink", &sink, nullptr);
  if (sink == nullptr) g_object_get(playbin, "audio-sink", &sink, nullptr);
  if (sink == nullptr) return;
  GstPad* pad = gst_element_get_static_pad(sink, "sink");
  gst_object_unref(sink);
  if (pad == nullptr) return;
  {
    std::lock_guard lock(probesMutex);
    for (const auto& probe : probes) {
      if (probe.pad == pad) {
        gst_object_unref(pad);
        return;
      }
    }
    const gulong id =
        gst_pad_add_probe(pad,
                          static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM |
                                                       GST_PAD_PROBE_TYPE_EVENT_UPSTREAM),
                          onSinkPadEvent, inboxData(inbox), releaseInboxData);
    probes.push_back({pad, id});
  }
  GstCaps* caps = gst_pad_get_current_caps(pad);
  if (caps != nullptr) {
    if (auto format = videoCapsOf(caps)) inbox->push(*format);
    gst_caps_unref(caps);
  }
}

void PlaybinMonitor::Impl::start() {
  gst_bus_enable_sync_message_emission(bus);
  busHandlers.push_back(g_signal_connect_data(
      bus, "sync-message", G_CALLBACK(onSyncMessage), new BusWatch{inbox, playbin},
      [](gpointer data, GClosure*) { delete static_cast<BusWatch*>(data); },
      static_cast<GConnectFlags>(0)));
  playbinHandlers.push_back(g_signal_connect_data(playbin, "notify::uri", G_CALLBACK(onUriNotify),
                                                  inboxData(inbox), releaseInboxClosure,
                                                  static_cast<GConnectFlags>(0)));
  playbinHandlers.push_back(
      g_signal_connect_data(playbin, "source-setup", G_CALLBACK(onSourceSetup), inboxData(inbox),
                            releaseInboxClosure, static_cast<GConnectFlags>(0)));
  gchar* uri = nullptr;
  g_object_get(playbin, "uri", &uri, nullptr);
  if (uri != nullptr) inbox->push(UriChanged{uri});
  g_free(uri);
  watchSinkPad();
  thread = std::thread([this] { run(); });
}

void PlaybinMonitor::Impl::run() {
  guint major = 0;
  guint minor = 0;
  guint micro = 0;
  guint nano = 0;
  gst_version(&major, &minor, &micro, &nano);
  PlayerFacts facts;
  facts.softwareName = "GStreamer";
  facts.softwareVersion =
      std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(micro);
  facts.pluginName = kPluginName;
  facts.pluginVersion = TAV_GST_PLUGIN_VERSION;
  facts.width = metadata.playerWidth;
  facts.height = metadata.playerHeight;

  auto customerPlayer = std::make_shared<TAVSDKCustomerPlayerData>();
  if (metadata.customerPlayerData) customerPlayer->setQuery(metadata.customerPlayerData->toQuery());
  if (!customerPlayer->playerName()) customerPlayer->setPlayerName(playerName);
  ViewReporter reporter(facts, customerPlayer, metadata.customerVideoData,
                        [this](const TAVSDKEventPtr& event) { dispatch(event); });

  std::map<std::string, std::string> playlists;  // captured bytes by URL
  std::optional<std::int64_t> reportedDuration;
  const auto reportDuration = [&] {
    const auto duration = durationMs();
    if (duration && duration != reportedDuration) {
      reportedDuration = duration;
      reporter.duration(*duration);
    }
  };
  const auto interval = std::max(metadata.timeUpdateInterval, std::chrono::milliseconds(10));
  auto nextTick = Clock::now() + interval;
  for (;;) {
    for (auto& observation : inbox->takeUntil(nextTick)) {
      if (std::holds_alternative<Detach>(observation)) {
        reporter.setPlayhead(position());
        reporter.detach();
        std::lock_guard lock(facadeMutex());
        TAVSDKCore::destroyPlayer(playerName);
        return;
      }
      // The playhead at the moment of the event, except for a seek, which the
      // pipeline may already have carried out: keep the last one seen before it.
      if (!std::holds_alternative<SeekStarted>(observation)) {
        if (auto at = position()) reporter.setPlayhead(at);
      }
      std::visit(
          [&](auto& o) {
            using T = std::decay_t<decltype(o)>;
            if constexpr (std::is_same_v<T, UriChanged>) {
              playlists.clear();
              reportedDuration.reset();
              reporter.setPlayhead(0);
              reporter.uriChanged(o.uri);
            } else if constexpr (std::is_same_v<T, StateChanged>) {
              if (o.current == PipelineState::Paused && o.old == PipelineState::Ready)
                watchSinkPad();
              reporter.stateChanged(o.old, o.current, o.pending, o.atMs);
              if (!reportedDuration &&
                  (o.current == PipelineState::Paused || o.current == PipelineState::Playing))
                reportDuration();
            } else if constexpr (std::is_same_v<T, Buffering>) {
              reporter.buffering(o.percent, o.atMs);
            } else if constexpr (std::is_same_v<T, SeekStarted>) {
              reporter.seekStarted();
            } else if constexpr (std::is_same_v<T, AsyncDone>) {
              reporter.asyncDone();
            } else if constexpr (std::is_same_v<T, EndOfStream>) {
              reporter.endOfStream();
            } else if constexpr (std::is_same_v<T, DurationChanged>) {
              reportDuration();
            } else if constexpr (std::is_same_v<T, ErrorSeen>) {
              reporter.error(o.code, o.message);
            } else if constexpr (std::is_same_v<T, VideoCaps>) {
              reporter.videoFormat(o.width, o.height, o.frameRate);
            } else if constexpr (std::is_same_v<T, PlaylistBytes>) {
              playlists[o.uri] += o.bytes;
            } else if constexpr (std::is_same_v<T, ManifestStats>) {
              if (auto found = playlists.find(o.uri); found != playlists.end())
                reporter.masterPlaylist(o.uri, found->second);
              reporter.manifestLoaded(o.uri, o.endMs);
            } else if constexpr (std::is_same_v<T, VariantStats>) {
              reporter.variantSelected(o.uri, o.bitrate);
            } else if constexpr (std::is_same_v<T, HttpResponse>) {
              reporter.httpResponse(o);
            } else if constexpr (std::is_same_v<T, SegmentDownload>) {
              reporter.segmentLoaded(o);
            }
          },
          observation);
    }
    if (Clock::now() >= nextTick) {
      if (reporter.wantsTicks()) {
        reporter.setPlayhead(position());
        reporter.tick();
      }
      nextTick += interval;
      if (nextTick < Clock::now()) nextTick = Clock::now() + interval;
    }
  }
}

void PlaybinMonitor::Impl::stop() {
  if (detached) return;
  detached = true;
  for (const gulong id : busHandlers)
    g_signal_handler_disconnect(bus, id);
  for (const gulong id : playbinHandlers)
    g_signal_handler_disconnect(playbin, id);
  gst_bus_disable_sync_message_emission(bus);
  {
    std::lock_guard lock(probesMutex);
    for (const auto& probe : probes) {
      gst_pad_remove_probe(probe.pad, probe.id);
      gst_object_unref(probe.pad);
    }
    probes.clear();
  }
  inbox->push(Detach{});
  if (thread.joinable()) thread.join();
  inbox->close();
  gst_object_unref(bus);
  gst_object_unref(playbin);
}

PlaybinMonitor::PlaybinMonitor(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}

PlaybinMonitor::~PlaybinMonitor() {
  detach();
}

void PlaybinMonitor::detach() {
  if (_impl) _impl->stop();
}

const std::string& PlaybinMonitor::playerName() const {
  return _impl->playerName;
}

std::unique_ptr<PlaybinMonitor> PlaybinMonitor::attach(GstElement* playbin,
                                                       const std::string& playerName,
                                                       PlaybinMetadata metadata) {
  if (!gst_is_initialized()) {
    TAVSDKLog::error("TAVSDK-ERROR - tavcore-gstreamer: gst_init has not been called");
    return nullptr;
  }
  if (playbin == nullptr ||
      g_object_class_find_property(G_OBJECT_GET_CLASS(playbin), "uri") == nullptr ||
      g_object_class_find_property(G_OBJECT_GET_CLASS(playbin), "video-sink") == nullptr) {
    TAVSDKLog::error("TAVSDK-ERROR - tavcore-gstreamer: the element to attach is not a playbin");
    return nullptr;
  }
  auto impl = std::make_unique<Impl>(playbin, playerName, std::move(metadata));
  impl->start();
  return std::unique_ptr<PlaybinMonitor>(new PlaybinMonitor(std::move(impl)));
}

}  // namespace tav::gstreamer
