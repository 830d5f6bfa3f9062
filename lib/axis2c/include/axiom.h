/* AXIOM: the object model of XML. A node and its element are the same libxml2 node underneath. */
#ifndef AXIOM_H
#define AXIOM_H

#include <axutil_env.h>
#include <axutil_qname.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct axiom_node axiom_node_t;
typedef struct axiom_element axiom_element_t;
typedef struct axiom_namespace axiom_namespace_t;

typedef enum axiom_types {
  AXIOM_INVALID = 0,
  AXIOM_DOCUMENT,
  AXIOM_ELEMENT,
  AXIOM_DOCTYPE,
  AXIOM_COMMENT,
  AXIOM_ATTRIBUTE,
  AXIOM_NAMESPACE,
  AXIOM_PROCESSING_INSTRUCTION,
  AXIOM_TEXT,
  AXIOM_DATA_SOURCE
} axiom_types_t;

/* The node with all below it. A node that has a parent is taken out of it first. */
AXIS2_EXTERN void AXIS2_CALL axiom_node_free_tree(axiom_node_t* node, const axutil_env_t* env);
AXIS2_EXTERN axiom_node_t* AXIS2_CALL axiom_node_get_first_child(axiom_node_t* node,
                                                                 const axutil_env_t* env);
AXIS2_EXTERN axiom_node_t* AXIS2_CALL axiom_node_get_next_sibling(axiom_node_t* node,
                                                                  const axutil_env_t* env);
AXIS2_EXTERN axiom_types_t AXIS2_CALL axiom_node_get_node_type(axiom_node_t* node,
                                                               const axutil_env_t* env);
/* The element of an element node. */
AXIS2_EXTERN void* AXIS2_CALL axiom_node_get_data_element(axiom_node_t* node,
                                                          const axutil_env_t* env);
/* XML text; the caller frees it with AXIS2_FREE. */
AXIS2_EXTERN axis2_char_t* AXIS2_CALL axiom_node_to_string(axiom_node_t* node,
                                                           const axutil_env_t* env);

/* Owned by the element that it is given to. */
AXIS2_EXTERN axiom_namespace_t* AXIS2_CALL axiom_namespace_create(const axutil_env_t* env,
                                                                  const axis2_char_t* uri,
                                                                  const axis2_char_t* prefix);

/* Appends to parent, which may be null; so may ns. node receives the element's node. */
AXIS2_EXTERN axiom_element_t* AXIS2_CALL axiom_element_create(const axutil_env_t* env,
                                                              axiom_node_t* parent,
                                                              const axis2_char_t* localname,
                                                              axiom_namespace_t* ns,
                                                              axiom_node_t** node);
AXIS2_EXTERN axis2_char_t* AXIS2_CALL axiom_element_get_localname(axiom_element_t* element,
                                                                  const axutil_env_t* env);
/* Replaces the element's text; the text is taken as it is and escaped on output. */
AXIS2_EXTERN axis2_status_t AXIS2_CALL axiom_element_set_text(axiom_element_t* element,
                                                              const axutil_env_t* env,
                                                              const axis2_char_t* text,
                                                              axiom_node_t* node);
/* The element's own text, joined over comments and CDATA; null when there is none. Owned by the
 * element. */
AXIS2_EXTERN axis2_char_t* AXIS2_CALL axiom_element_get_text(axiom_element_t* element,
                                                             const axutil_env_t* env,
                                                             axiom_node_t* node);
/* Null when the element has no such attribute; owned by the element. */
AXIS2_EXTERN axis2_char_t* AXIS2_CALL axiom_element_get_attribute_value(axiom_element_t* element,
                                                                        const axutil_env_t* env,
                                                                        axutil_qname_t* qname);

#ifdef __cplusplus
}
#endif
#endif
