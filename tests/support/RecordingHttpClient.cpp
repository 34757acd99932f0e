#include "support/RecordingHttpClient.h"

#include <stdexcept>
#include <utility>

namespace tav::test {

void RecordingHttpClient::send(TAVSDKHttpRequest request, Completion completion) {
  const std::lock_guard lock(_mutex);
  _calls.push_back({std::move(request), std::move(completion)});
}

std::size_t RecordingHttpClient::count() const {
  const std::lock_guard lock(_mutex);
  return _calls.size();
}

TAVSDKHttpRequest RecordingHttpClient::request(std::size_t index) const {
  const std::lock_guard lock(_mutex);
  return _calls.at(index).request;
}

nlohmann::json RecordingHttpClient::body(std::size_t index) const {
  return nlohmann::json::parse(request(index).body);
}

std::string RecordingHttpClient::header(std::size_t index, const std::string& name) const {
  for (const auto& [key, value] : request(index).headers) {
    if (key == name) return value;
  }
  return "";
}

std::size_t RecordingHttpClient::openCount() const {
  const std::lock_guard lock(_mutex);
  std::size_t open = 0;
  for (const auto& call : _calls)
    open += call.done ? 0U : 1U;
  return open;
}

void RecordingHttpClient::fail(std::size_t index, const std::string& error) {
  TAVSDKHttpResult result;
  result.error = error;
  complete(index, std::move(result));
}

void RecordingHttpClient::succeed(std::size_t index, int status, const std::string& body) {
  TAVSDKHttpResult result;
  result.status = status;
  result.body = body;
  complete(index, std::move(result));
}

void RecordingHttpClient::complete(std::size_t index, TAVSDKHttpResult result) {
  Completion completion;
  {
    const std::lock_guard lock(_mutex);
    completion = std::exchange(_calls.at(index).completion, nullptr);
  }
  if (!completion) throw std::logic_error("request completed twice");
  completion(std::move(result));
  const std::lock_guard lock(_mutex);
  _calls.at(index).done = true;
}

}  // namespace tav::test
