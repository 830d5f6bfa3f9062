#include "HostObserver.h"

#include <atomic>

namespace Kelvane {

namespace {
std::atomic<HostObserver*> theObserver{nullptr};
std::atomic<MetadataStore*> theStore{nullptr};
}  // namespace

void setHostObserver(HostObserver* observer) {
  theObserver.store(observer);
}
HostObserver* hostObserver() {
  return theObserver.load();
}
void setMetadataStore(MetadataStore* store) {
  theStore.store(store);
}
MetadataStore* metadataStore() {
  return theStore.load();
}

}  // namespace Kelvane
