// The platform's XML layer: plain forwards to libxml2, and the package manager's file parser.
// libxml2's own error output goes to the syslog log instead of the terminal.
#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <cerrno>
#include <cstdarg>
#include <string>

#include "host.h"
#include "zak_xml.h"

namespace {

void LogXmlError(void *, xmlErrorPtr error) {
    if (error == nullptr || error->message == nullptr) return;
    bool io = error->domain == XML_FROM_IO || error->domain == XML_FROM_OUTPUT;
    std::string text = std::string(io ? "libxml2 I/O error: " : "libxml2: ") + error->message;
    if (error->file != nullptr) text += std::string(" (") + error->file + ")";
    zakhost::log_text("syslog", 0, 0, text);
}

// Messages that bypass the structured handler arrive in pieces; a line is logged when complete.
void LogXmlGenericError(void *, const char *format, ...) {
    thread_local std::string pending;
    va_list values;
    va_start(values, format);
    pending += zakhost::vformat(format, values);
    va_end(values);
    for (size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1))
        zakhost::log_text("syslog", 0, 0, "libxml2: " + pending.substr(0, end));
}

// libxml2 keeps its error handlers per thread: set them on each thread's first XML call.
void RouteXmlErrors() {
    thread_local bool routed = false;
    if (routed) return;
    xmlSetStructuredErrorFunc(nullptr, LogXmlError);
    xmlSetGenericErrorFunc(nullptr, LogXmlGenericError);
    routed = true;
}

void Silent(void *, const char *, ...) {}
void SilentStructured(void *, xmlErrorPtr) {}

} // namespace

zakhost::XmlErrorsQuiet::XmlErrorsQuiet()
    : generic_(reinterpret_cast<void *>(xmlGenericError)), genericContext_(xmlGenericErrorContext),
      structured_(reinterpret_cast<void *>(xmlStructuredError)),
      structuredContext_(xmlStructuredErrorContext) {
    xmlSetGenericErrorFunc(nullptr, Silent);
    xmlSetStructuredErrorFunc(nullptr, SilentStructured);
}

zakhost::XmlErrorsQuiet::~XmlErrorsQuiet() {
    xmlSetGenericErrorFunc(genericContext_, reinterpret_cast<xmlGenericErrorFunc>(generic_));
    xmlSetStructuredErrorFunc(structuredContext_, reinterpret_cast<xmlStructuredErrorFunc>(structured_));
}

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
    RouteXmlErrors();
    errno = 0;
    int written = xmlSaveFormatFileEnc(path, doc, encoding, format);
    if (written < 0 && path != nullptr) zakhost::report_write_failure(path, errno != 0 ? errno : EIO);
    return written;
}
void ZAK_Adapt_xmlDocDumpFormatMemoryEnc(xmlDocPtr doc, xmlChar **memory, int *size, const char *encoding,
                                         int format) {
    RouteXmlErrors();
    xmlDocDumpFormatMemoryEnc(doc, memory, size, encoding, format);
}
void ZAK_Adapt_xmlFree(void *memory) {
    xmlFree(memory);
}
void ZAK_Adapt_xmlFreeDoc(xmlDocPtr doc) {
    xmlFreeDoc(doc);
}

uint32_t RPM_ParseXmlFile_HOOK(const char *path, xmlDocPtr *doc) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlFile_HOOK", &code)) return code;
    if (path == nullptr || doc == nullptr) return 1;
    RouteXmlErrors();
    *doc = xmlReadFile(path, nullptr,
                       XML_PARSE_NONET | XML_PARSE_NOBLANKS | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    return *doc != nullptr ? 0 : 2;
}

} // extern "C"
