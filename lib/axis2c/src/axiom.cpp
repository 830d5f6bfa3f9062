#include <axiom.h>
#include <axiom_soap.h>
#include <libxml/tree.h>

#include <string>

#include "internal.h"

using axis2c::toNode;
using axis2c::toXml;

namespace {

xmlNode* toXml(axiom_element_t* element) {
  return reinterpret_cast<xmlNode*>(element);
}

bool isText(const xmlNode* node) {
  return node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
}

const xmlChar* bytes(const char* text) {
  return reinterpret_cast<const xmlChar*>(text);
}
char* chars(const xmlChar* text) {
  return const_cast<char*>(reinterpret_cast<const char*>(text));
}

// Takes all text out of the element and returns it.
std::string takeText(xmlNode* element) {
  std::string text;
  for (xmlNode *child = element->children, *next; child != nullptr; child = next) {
    next = child->next;
    if (!isText(child)) continue;
    if (child->content != nullptr) text += chars(child->content);
    xmlUnlinkNode(child);
    xmlFreeNode(child);
  }
  return text;
}

}  // namespace

void axiom_node_free_tree(axiom_node_t* node, const axutil_env_t*) {
  if (node == nullptr) return;
  xmlUnlinkNode(toXml(node));
  xmlFreeNode(toXml(node));
}

axiom_node_t* axiom_node_get_first_child(axiom_node_t* node, const axutil_env_t*) {
  return toNode(toXml(node)->children);
}

axiom_node_t* axiom_node_get_next_sibling(axiom_node_t* node, const axutil_env_t*) {
  return toNode(toXml(node)->next);
}

axiom_types_t axiom_node_get_node_type(axiom_node_t* node, const axutil_env_t*) {
  switch (toXml(node)->type) {
    case XML_ELEMENT_NODE:
      return AXIOM_ELEMENT;
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
      return AXIOM_TEXT;
    case XML_COMMENT_NODE:
      return AXIOM_COMMENT;
    case XML_PI_NODE:
      return AXIOM_PROCESSING_INSTRUCTION;
    default:
      return AXIOM_INVALID;
  }
}

void* axiom_node_get_data_element(axiom_node_t* node, const axutil_env_t*) {
  return node;
}

axis2_char_t* axiom_node_to_string(axiom_node_t* node, const axutil_env_t* env) {
  xmlBuffer* buffer = xmlBufferCreate();
  char* text = nullptr;
  if (buffer != nullptr && xmlNodeDump(buffer, toXml(node)->doc, toXml(node), 0, 0) >= 0) {
    text = static_cast<char*>(axutil_strdup(env, xmlBufferContent(buffer)));
  }
  xmlBufferFree(buffer);
  if (text == nullptr) AXIS2_ERROR_SET(env->error, AXIS2_ERROR_OM_OUTPUT_ERROR, AXIS2_FAILURE);
  return text;
}

axiom_namespace_t* axiom_namespace_create(const axutil_env_t*, const axis2_char_t* uri,
                                          const axis2_char_t* prefix) {
  return reinterpret_cast<axiom_namespace_t*>(xmlNewNs(nullptr, bytes(uri), bytes(prefix)));
}

axiom_element_t* axiom_element_create(const axutil_env_t* env, axiom_node_t* parent,
                                      const axis2_char_t* localname, axiom_namespace_t* ns,
                                      axiom_node_t** node) {
  auto* declared = reinterpret_cast<xmlNs*>(ns);
  xmlNode* created = localname == nullptr ? nullptr : xmlNewNode(declared, bytes(localname));
  if (node != nullptr) *node = toNode(created);
  if (created == nullptr) {
    xmlFreeNsList(declared);
    AXIS2_ERROR_SET(env->error, AXIS2_ERROR_INVALID_NULL_PARAM, AXIS2_FAILURE);
    return nullptr;
  }
  created->nsDef = declared;
  if (parent != nullptr) xmlAddChild(toXml(parent), created);
  return reinterpret_cast<axiom_element_t*>(created);
}

axis2_char_t* axiom_element_get_localname(axiom_element_t* element, const axutil_env_t*) {
  return chars(toXml(element)->name);
}

axis2_status_t axiom_element_set_text(axiom_element_t* element, const axutil_env_t*,
                                      const axis2_char_t* text, axiom_node_t*) {
  takeText(toXml(element));
  if (text != nullptr) xmlAddChild(toXml(element), xmlNewText(bytes(text)));
  return AXIS2_SUCCESS;
}

axis2_char_t* axiom_element_get_text(axiom_element_t* element, const axutil_env_t*, axiom_node_t*) {
  xmlNode* first = nullptr;
  bool several = false;
  for (xmlNode* child = toXml(element)->children; child != nullptr; child = child->next) {
    if (!isText(child)) continue;
    several = first != nullptr;
    if (several) break;
    first = child;
  }
  if (first == nullptr) return nullptr;
  if (several) {
    // The caller gets a pointer into the tree, so the pieces become one there.
    const std::string text = takeText(toXml(element));
    first = xmlNewDocText(toXml(element)->doc, bytes(text.c_str()));
    first = xmlAddChild(toXml(element), first);
  }
  return chars(first->content);
}

axis2_char_t* axiom_element_get_attribute_value(axiom_element_t* element, const axutil_env_t*,
                                                axutil_qname_t* qname) {
  const xmlChar* uri = qname->uri.empty() ? nullptr : bytes(qname->uri.c_str());
  const xmlAttr* attribute = xmlHasNsProp(toXml(element), bytes(qname->local.c_str()), uri);
  if (attribute == nullptr || attribute->type != XML_ATTRIBUTE_NODE) return nullptr;
  return attribute->children == nullptr ? nullptr : chars(attribute->children->content);
}

axiom_soap_body_t* axiom_soap_envelope_get_body(axiom_soap_envelope_t* envelope,
                                                const axutil_env_t*) {
  auto* root = reinterpret_cast<xmlNode*>(envelope);
  return reinterpret_cast<axiom_soap_body_t*>(axis2c::childElement(root, "Body"));
}

axiom_node_t* axiom_soap_body_get_base_node(axiom_soap_body_t* body, const axutil_env_t*) {
  return reinterpret_cast<axiom_node_t*>(body);
}
