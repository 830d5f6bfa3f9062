#pragma once

#include <string>

#include "cms/BytesMessage.h"
#include "cms/Closeable.h"
#include "cms/MessageConsumer.h"
#include "cms/MessageProducer.h"
#include "cms/Queue.h"
#include "cms/TextMessage.h"
#include "cms/Topic.h"

namespace cms {

// Makes everything else; the caller owns what it gets. Any thread may call.
class Session : public Closeable {
 public:
  enum AcknowledgeMode { AUTO_ACKNOWLEDGE };

  virtual MessageConsumer* createConsumer(const Destination* destination) = 0;
  virtual MessageConsumer* createConsumer(const Destination* destination,
                                          const std::string& selector) = 0;
  // A null destination has to be named at each send.
  virtual MessageProducer* createProducer(const Destination* destination = nullptr) = 0;
  virtual Queue* createQueue(const std::string& name) = 0;
  virtual Topic* createTopic(const std::string& name) = 0;
  virtual Message* createMessage() = 0;
  virtual BytesMessage* createBytesMessage() = 0;
  virtual BytesMessage* createBytesMessage(const unsigned char* bytes, int bytesSize) = 0;
  virtual TextMessage* createTextMessage() = 0;
  virtual TextMessage* createTextMessage(const std::string& text) = 0;
  virtual AcknowledgeMode getAcknowledgeMode() const = 0;
};

}  // namespace cms
