// The platform's XML layer: plain forwards to libxml2, and the package manager's file parser.
#include <libxml/parser.h>

#include "pkg_host.h"
#include "zak_xml.h"

extern "C" {

xmlDocPtr ZAK_Adapt_xmlNewDoc(const xmlChar *version) {
    if (zakhost::injected("ZAK_Adapt_xmlNewDoc")) return nullptr;
    return xmlNewDoc(version);
}
xmlNodePtr ZAK_Adapt_xmlNewNode(xmlNsPtr ns, const xmlChar *name) {
    if (zakhost::injected("ZAK_Adapt_xmlNewNode")) return nullptr;
    return xmlNewNode(ns, name);
}
xmlNodePtr ZAK_Adapt_xmlDocSetRootElement(xmlDocPtr doc, xmlNodePtr root) {
    return xmlDocSetRootElement(doc, root);
}
xmlNodePtr ZAK_Adapt_xmlDocGetRootElement(const xmlDoc *doc) {
    return xmlDocGetRootElement(doc);
}
xmlNodePtr ZAK_Adapt_xmlNewChild(xmlNodePtr parent, xmlNsPtr ns, const xmlChar *name,
                                 const xmlChar *content) {
    if (zakhost::injected("ZAK_Adapt_xmlNewChild")) return nullptr;
    return xmlNewChild(parent, ns, name, content);
}
xmlAttrPtr ZAK_Adapt_xmlSetProp(xmlNodePtr node, const xmlChar *name, const xmlChar *value) {
    if (zakhost::injected("ZAK_Adapt_xmlSetProp")) return nullptr;
    return xmlSetProp(node, name, value);
}
int ZAK_Adapt_xmlSaveFormatFileEnc(const char *path, xmlDocPtr doc, const char *encoding, int format) {
    int64_t result = 0;
    if (zakhost::injected("ZAK_Adapt_xmlSaveFormatFileEnc", &result))
        return result != 0 ? static_cast<int>(result) : -1;
    return xmlSaveFormatFileEnc(path, doc, encoding, format);
}
void ZAK_Adapt_xmlDocDumpFormatMemoryEnc(xmlDocPtr doc, xmlChar **memory, int *size, const char *encoding,
                                         int format) {
    xmlDocDumpFormatMemoryEnc(doc, memory, size, encoding, format);
}
void ZAK_Adapt_xmlFree(void *memory) {
    xmlFree(memory);
}
void ZAK_Adapt_xmlFreeDoc(xmlDocPtr doc) {
    xmlFreeDoc(doc);
}

uint32_t RPM_ParseXmlFile_HOOK(const char *path, xmlDocPtr *doc) {
    if (uint32_t code = 0; zakhost::pkg::injected_code("RPM_ParseXmlFile_HOOK", &code)) return code;
    if (path == nullptr || doc == nullptr) return 1;
    *doc = xmlReadFile(path, nullptr,
                       XML_PARSE_NONET | XML_PARSE_NOBLANKS | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    return *doc != nullptr ? 0 : 2;
}

} // extern "C"
