#pragma once

#include <string>

#include "Retriever.h"

namespace host {

// Opens the broker's session on a thread of its own and hands it to
// `retriever`, which must live until the process ends. An attempt that fails is
// repeated after a delay that grows from one second to a minute; each reason is
// reported once at ERROR. The stream neither waits for a broker nor ends without.
void openBrokerBesideStream(const std::string& uri, Kelvane::Retriever& retriever);

}  // namespace host
