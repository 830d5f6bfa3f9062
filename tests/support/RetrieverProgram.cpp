#include "RetrieverProgram.h"

#include <json/reader.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace testsupport {

namespace {

std::vector<std::string> commandOf(const RetrieverProgram::Keys& keys,
                                   const std::vector<std::string>& options,
                                   const std::string& folder) {
  RetrieverProgram::Keys all{{"CAMERAMODEL", "generic"},
                             {"DEVID", "dev" + std::to_string(getpid())},
                             {"OBJID", std::to_string(getpid())},
                             {"MODELID", "generic"},
                             {"MEDIA_FORMAT", "h264"}};
  for (const auto& [key, value] : keys) all[key] = value;
  std::vector<std::string> command{builtProgram("mretriever"), "--trace", folder + "/trace"};
  for (const auto& [key, value] : all) command.push_back(key + "=" + value);
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

}  // namespace

RetrieverProgram::RetrieverProgram(const Keys& keys, const std::vector<std::string>& options)
    : process_(commandOf(keys, options, folder_.path())) {}

std::vector<Json::Value> RetrieverProgram::events(const std::string& name) {
  process_.output();  // a full pipe would hold the program up
  std::ifstream trace(folder_.path() + "/trace");
  std::vector<Json::Value> found;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  std::string line;
  while (std::getline(trace, line) && !trace.eof()) {  // a line without its end is not whole yet
    Json::Value event;
    std::string problem;
    if (!reader->parse(line.data(), line.data() + line.size(), &event, &problem)) {
      throw std::runtime_error("trace line is no JSON: " + line + ": " + problem);
    }
    if (name.empty() || event["event"] == name) found.push_back(event);
  }
  return found;
}

bool RetrieverProgram::awaitEvents(const std::string& name, std::size_t count) {
  return eventually([&] { return events(name).size() >= count; });
}

std::vector<std::string> RetrieverProgram::states() {
  std::vector<std::string> all;
  for (const Json::Value& event : events("state")) {
    all.push_back(event["state"].asString() + " " + event["errno"].asString());
  }
  return all;
}

int RetrieverProgram::stop(int signal) {
  process_.signal(signal);
  return wait();
}

namespace {
std::vector<std::string> commandOf(const std::string& program, std::vector<std::string> options) {
  options.insert(options.begin(), builtProgram(program));
  return options;
}
}  // namespace

SimulatedDevice::SimulatedDevice(const std::vector<std::string>& options, const std::string& ready,
                                 const std::string& program)
    : process(commandOf(program, options)) {
  if (!process.awaitOutput(ready)) throw std::runtime_error(program + ": " + process.output());
  const std::string text = process.output();
  const std::string line = text.substr(0, text.find('\n', text.find(ready)));
  const std::string tail = line.substr(line.rfind(':') + 1);
  port = tail.substr(0, tail.find_first_not_of("0123456789"));
}

std::vector<std::string> recordingsIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code none;
  for (const auto& entry : std::filesystem::directory_iterator(folder, none)) {
    if (entry.path().extension() == ".mkv") names.push_back(entry.path());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string probed(const std::string& file, const std::string& entries, const std::string& stream) {
  std::vector<std::string> command{"ffprobe",       "-v",   "error", "-of", "csv=p=0",
                                   "-show_entries", entries};
  if (entries.find("nb_read_frames") != std::string::npos) command.emplace_back("-count_frames");
  if (!stream.empty()) command.insert(command.end(), {"-select_streams", stream});
  command.push_back(file);
  return outputOf(command);
}

std::string complaintsOf(const std::string& file) {
  return outputOf({"ffmpeg", "-v", "error", "-nostdin", "-i", file, "-f", "null", "-"});
}

std::string builtProgram(const std::string& name) {
  return std::string(MRETRIEVER_BIN_DIR) + "/" + name;
}

std::string outputOf(const std::vector<std::string>& command) {
  Subprocess process(command);
  const int status = process.wait();
  if (status != 0) throw std::runtime_error(command[0] + " failed: " + process.output());
  return process.output();
}

}  // namespace testsupport
