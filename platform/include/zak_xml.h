/* The platform's XML layer: libxml2's document model under the platform's names, with the
 * semantics of the libxml2 functions of the same name. */
#ifndef PLATFORM_ZAK_XML_H
#define PLATFORM_ZAK_XML_H

#include <libxml/tree.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

xmlDocPtr ZAK_Adapt_xmlNewDoc(const xmlChar *version);
xmlNodePtr ZAK_Adapt_xmlNewNode(xmlNsPtr ns, const xmlChar *name);
xmlNodePtr ZAK_Adapt_xmlDocSetRootElement(xmlDocPtr doc, xmlNodePtr root);
xmlNodePtr ZAK_Adapt_xmlDocGetRootElement(const xmlDoc *doc);
xmlNodePtr ZAK_Adapt_xmlNewChild(xmlNodePtr parent, xmlNsPtr ns, const xmlChar *name, const xmlChar *content);
xmlAttrPtr ZAK_Adapt_xmlSetProp(xmlNodePtr node, const xmlChar *name, const xmlChar *value);
int ZAK_Adapt_xmlSaveFormatFileEnc(const char *path, xmlDocPtr doc, const char *encoding, int format);
void ZAK_Adapt_xmlDocDumpFormatMemoryEnc(xmlDocPtr doc, xmlChar **memory, int *size, const char *encoding,
                                         int format);
void ZAK_Adapt_xmlFree(void *memory);
void ZAK_Adapt_xmlFreeDoc(xmlDocPtr doc);

/* Parses an XML file into *doc (the caller frees it); 0 on success. */
uint32_t RPM_ParseXmlFile_HOOK(const char *path, xmlDocPtr *doc);

#ifdef __cplusplus
}
#endif

#endif
