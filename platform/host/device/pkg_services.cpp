// Package-manager services the device functions use: an element of a version file by path, the
// removal of one file, and full paths under the common root. They are defined weak: the
// package-manager family of the host provides the full versions, which take precedence.
#include <unistd.h>

#include <cstring>
#include <string>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include "host.h"
#include "rpm_device.h"

namespace {

uint32_t copy_out(const std::string &text, char *out, uint32_t size) {
    if (out == nullptr || size == 0) return 2;
    if (text.size() >= size) {
        out[0] = '\0';
        return 2;
    }
    std::memcpy(out, text.c_str(), text.size() + 1);
    return 0;
}

} // namespace

extern "C" {

__attribute__((weak)) uint32_t RPM_ParseXmlElementNodeValueByPath_HOOK(const char *xmlPath,
                                                                       const char *elementPath, char *out,
                                                                       uint32_t size) {
    if (zakhost::injected("RPM_ParseXmlElementNodeValueByPath_HOOK") || xmlPath == nullptr ||
        elementPath == nullptr)
        return 1;
    xmlDocPtr doc = xmlReadFile(xmlPath, nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (doc == nullptr) return 1;
    xmlNodePtr node = xmlDocGetRootElement(doc);
    std::string path(elementPath);
    size_t start = 0;
    bool first = true;
    while (node != nullptr && start <= path.size()) {
        size_t slash = path.find('/', start);
        std::string name = path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (!first) {
            xmlNodePtr child = node->children;
            while (child != nullptr &&
                   (child->type != XML_ELEMENT_NODE || name != reinterpret_cast<const char *>(child->name)))
                child = child->next;
            node = child;
        } else if (name != reinterpret_cast<const char *>(node->name)) {
            node = nullptr;
        }
        first = false;
        if (slash == std::string::npos) break;
        start = slash + 1;
    }
    uint32_t code = 1;
    if (node != nullptr) {
        xmlChar *text = xmlNodeGetContent(node);
        code = copy_out(text != nullptr ? reinterpret_cast<const char *>(text) : "", out, size);
        xmlFree(text);
    }
    xmlFreeDoc(doc);
    return code;
}

__attribute__((weak)) uint32_t RPMFS_DelFile(const char *path) {
    if (zakhost::injected("RPMFS_DelFile") || path == nullptr) return 1;
    return unlink(path) == 0 ? 0 : 1;
}

__attribute__((weak)) uint32_t RPM_GetFullPath(const char *relative, char *out, uint32_t size,
                                               uint32_t mode) {
    if (zakhost::injected("RPM_GetFullPath") || relative == nullptr || (mode != 2 && mode != 3)) return 1;
    return copy_out(zakhost::common_root() + "/" + relative, out, size);
}

} // extern "C"
