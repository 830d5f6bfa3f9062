#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Kelvane {

// Sets of classes, one bit a class. Who assigns the bits is not known here.
using Context_Class_Set = std::uint32_t;
using Event_Class_Set = std::uint32_t;
using Data_Processing_Level_Set = std::uint32_t;

// One message of the bus: routed by its header, which names a device address
// and the classes of what it carries.
class Message {
 public:
  struct Header {
    struct DevID {
      std::string IP = "0.0.0.0";  // dotted quad; need not be a real host
      int id = 0;
    };
    Context_Class_Set ctxType = 0;
    Event_Class_Set evtType = 0;
    Data_Processing_Level_Set procLvl = 0;
    DevID devID;
    std::uint32_t mMessageID = 0;
    int subscriptionID = -1;
  };
  using Attachment = std::pair<std::string, std::string>;  // descriptor, content

  Message() = default;
  explicit Message(const Header& header, const std::string& body = {})
      : header_(header), body_(body) {}

  void addAttachment(const std::string& descriptor, const std::string& content) {
    mAttachments.emplace_back(descriptor, content);
  }
  // Throws std::out_of_range.
  const Attachment& getAttachment(std::size_t index) const { return mAttachments.at(index); }
  std::uint32_t userid() const { return userid_; }

  Header header_;
  std::string body_;
  std::vector<Attachment> mAttachments;
  int sid_ = -1;
  std::uint32_t userid_ = 0;
};

}  // namespace Kelvane
