#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <cstring>

#include "internal.h"

namespace axis2c {

namespace {

constexpr const char* kEnvelopeNamespace = "http://schemas.xmlsoap.org/soap/envelope/";
constexpr int kParserOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

void refuseDocumentType(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  auto* parser = static_cast<xmlParserCtxt*>(context);
  parser->_private = parser;  // the mark of this refusal
  xmlStopParser(parser);
}

std::string firstLine(const xmlError* error) {
  const std::string text = error == nullptr || error->message == nullptr ? "" : error->message;
  return text.substr(0, text.find('\n'));
}

}  // namespace

xmlNode* childElement(const xmlNode* parent, const char* localName) {
  xmlNode* child = parent == nullptr ? nullptr : parent->children;
  for (; child != nullptr; child = child->next) {
    if (child->type != XML_ELEMENT_NODE) continue;
    if (localName == nullptr ||
        std::strcmp(reinterpret_cast<const char*>(child->name), localName) == 0) {
      return child;
    }
  }
  return nullptr;
}

Document parse(const std::string& text, std::string& why) {
  Document document(nullptr, xmlFreeDoc);
  const std::unique_ptr<xmlParserCtxt, decltype(&xmlFreeParserCtxt)> parser(
      xmlCreatePushParserCtxt(nullptr, nullptr, nullptr, 0, nullptr), xmlFreeParserCtxt);
  if (!parser) {
    why = "Out of memory";
    return document;
  }
  xmlCtxtUseOptions(parser.get(), kParserOptions);
  parser->sax->internalSubset = refuseDocumentType;
  xmlParseChunk(parser.get(), text.data(), static_cast<int>(text.size()), 1);
  document.reset(parser->myDoc);
  parser->myDoc = nullptr;
  if (parser->_private != nullptr) {
    why = "Invalid XML: a document type is not allowed";
    document.reset();
  } else if (!document || !parser->wellFormed) {
    why = "Invalid XML: " + firstLine(xmlCtxtGetLastError(parser.get()));
    document.reset();
  }
  return document;
}

std::string envelope(axiom_node_t* payload) {
  const auto* name = reinterpret_cast<const xmlChar*>("Envelope");
  xmlNode* root = xmlNewNode(nullptr, name);
  xmlSetNs(root, xmlNewNs(root, reinterpret_cast<const xmlChar*>(kEnvelopeNamespace),
                          reinterpret_cast<const xmlChar*>("soapenv")));
  const Document document(xmlNewDoc(nullptr), xmlFreeDoc);
  xmlDocSetRootElement(document.get(), root);
  xmlNewChild(root, root->ns, reinterpret_cast<const xmlChar*>("Header"), nullptr);
  xmlNode* body = xmlNewChild(root, root->ns, reinterpret_cast<const xmlChar*>("Body"), nullptr);
  if (payload != nullptr) xmlAddChild(body, toXml(payload));
  xmlChar* text = nullptr;
  int size = 0;
  xmlDocDumpMemoryEnc(document.get(), &text, &size, "UTF-8");
  const std::unique_ptr<xmlChar, decltype(xmlFree)> guard(text, xmlFree);
  return std::string(reinterpret_cast<char*>(text), static_cast<std::size_t>(size));
}

}  // namespace axis2c
