// The package manager's vercfg.xml readers over libxml2. Layout (root "Product"):
//   version elements anywhere by name or by path from the root;
//   Product/FileList/File elements: text = file name, attributes TypeCode, DestObjType,
//   NodeType, Attr, SHA256;
//   Product/APPList/APP: APPType then a second element child (the application's second field);
//   Product/VNF: ProductType, InterfaceId;
//   Product/CheckItems/Item: six texts in record order.
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "host.h"
#include "rpm_vercfg.h"
#include "securec.h"

namespace {

constexpr uint32_t kParseFailed = 1;
constexpr uint32_t kNotFound = 2;
constexpr uint32_t kTooLong = 3;
constexpr uint32_t kBadArgument = 4;
constexpr uint32_t kTooMany = 5;

struct DocFree {
    void operator()(xmlDoc *doc) const { xmlFreeDoc(doc); }
};
using Doc = std::unique_ptr<xmlDoc, DocFree>;

Doc parse(const char *path) {
    if (path == nullptr) return nullptr;
    zakhost::XmlErrorsQuiet quiet; // an unreadable file is the caller's failure code
    return Doc(xmlReadFile(path, nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
}

bool named(const xmlNode *node, const char *name) {
    return node->type == XML_ELEMENT_NODE && xmlStrcmp(node->name, BAD_CAST name) == 0;
}

const xmlNode *find_by_name(const xmlNode *node, const char *name) {
    for (; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE) continue;
        if (named(node, name)) return node;
        if (const xmlNode *inner = find_by_name(node->children, name)) return inner;
    }
    return nullptr;
}

const xmlNode *child(const xmlNode *parent, const char *name) {
    for (const xmlNode *c = parent != nullptr ? parent->children : nullptr; c != nullptr; c = c->next)
        if (named(c, name)) return c;
    return nullptr;
}

// The path's first component names the root element itself.
const xmlNode *find_by_path(const xmlDoc *doc, const char *path) {
    const xmlNode *node = xmlDocGetRootElement(doc);
    std::string rest = path;
    size_t slash = rest.find('/');
    if (node == nullptr || !named(node, rest.substr(0, slash).c_str())) return nullptr;
    while (slash != std::string::npos && node != nullptr) {
        rest = rest.substr(slash + 1);
        slash = rest.find('/');
        node = child(node, rest.substr(0, slash).c_str());
    }
    return node;
}

std::string text_of(const xmlNode *node) {
    xmlChar *content = xmlNodeGetContent(node);
    std::string text = content != nullptr ? reinterpret_cast<const char *>(content) : "";
    xmlFree(content);
    return text;
}

std::string attribute(const xmlNode *node, const char *name) {
    xmlChar *value = xmlGetProp(node, BAD_CAST name);
    std::string text = value != nullptr ? reinterpret_cast<const char *>(value) : "";
    xmlFree(value);
    return text;
}

uint32_t copy_text(const std::string &text, char *out, size_t size) {
    if (text.size() >= size) return kTooLong;
    return strcpy_s(out, size, text.c_str()) == EOK ? 0 : kTooLong;
}

// The text of a required element into `first`, then that of an optional one (empty when absent)
// into `second`; the first failure's code.
template <size_t First, size_t Second>
uint32_t copy_pair(const xmlNode *required, const xmlNode *optional, char (&first)[First],
                   char (&second)[Second]) {
    uint32_t rc = copy_text(text_of(required), first, First);
    if (rc == 0) rc = copy_text(optional != nullptr ? text_of(optional) : "", second, Second);
    return rc;
}

// Decimal or 0x-hexadecimal; absent or unparsable reads as 0.
uint32_t number_of(const std::string &text) {
    return static_cast<uint32_t>(zakhost::parse_int(text).value_or(0));
}

// Every File element of Product/FileList in document order.
std::vector<const xmlNode *> file_nodes(const xmlDoc *doc) {
    std::vector<const xmlNode *> nodes;
    const xmlNode *list = child(xmlDocGetRootElement(doc), "FileList");
    for (const xmlNode *c = list != nullptr ? list->children : nullptr; c != nullptr; c = c->next)
        if (named(c, "File")) nodes.push_back(c);
    return nodes;
}

template <class Match> uint32_t count_nodes(const char *xml, uint32_t *count, Match match) {
    if (count == nullptr) return kBadArgument;
    Doc doc = parse(xml);
    if (!doc) return kParseFailed;
    uint32_t n = 0;
    for (const xmlNode *node : file_nodes(doc.get()))
        if (match(node)) ++n;
    *count = n;
    return 0;
}

uint32_t fill_record(const xmlNode *node, RPM_FILE_NODE_INFO *record) {
    (void)memset_s(record, sizeof(*record), 0, sizeof(*record));
    record->uiTypeCode = number_of(attribute(node, "TypeCode"));
    record->uiNodeType = number_of(attribute(node, "NodeType"));
    record->uiAttr = number_of(attribute(node, "Attr"));
    uint32_t rc =
        copy_text(attribute(node, "DestObjType"), record->szDestObjType, sizeof(record->szDestObjType));
    if (rc == 0) rc = copy_text(attribute(node, "SHA256"), record->szSha256, sizeof(record->szSha256));
    if (rc == 0) rc = copy_text(text_of(node), record->szFileName, sizeof(record->szFileName));
    return rc;
}

template <class Match>
uint32_t read_nodes(const char *xml, RPM_FILE_NODE_INFO *records, uint32_t capacity, Match match) {
    if (records == nullptr) return kBadArgument;
    Doc doc = parse(xml);
    if (!doc) return kParseFailed;
    uint32_t n = 0;
    for (const xmlNode *node : file_nodes(doc.get())) {
        if (!match(node)) continue;
        if (n == capacity) return kTooMany;
        uint32_t rc = fill_record(node, &records[n++]);
        if (rc != 0) return rc;
    }
    return 0;
}

auto type_code_is(uint32_t code) {
    return [code](const xmlNode *node) {
        return code == RPM_ALL_TYPE_CODE || number_of(attribute(node, "TypeCode")) == code;
    };
}

auto dest_type_is(const char *dest) {
    std::string wanted = dest != nullptr ? dest : "";
    return [wanted](const xmlNode *node) { return attribute(node, "DestObjType") == wanted; };
}

} // namespace

extern "C" {

uint32_t RPM_ParseXmlElementNodeValue_HOOK(const char *xmlFile, const char *name, char *out, uint32_t size) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlElementNodeValue_HOOK", &code)) return code;
    if (name == nullptr || out == nullptr || size == 0) return kBadArgument;
    Doc doc = parse(xmlFile);
    if (!doc) return kParseFailed;
    const xmlNode *node = find_by_name(xmlDocGetRootElement(doc.get()), name);
    return node == nullptr ? kNotFound : copy_text(text_of(node), out, size);
}

uint32_t RPM_ParseXmlElementNodeValueByPath_HOOK(const char *xmlFile, const char *path, char *out,
                                                 uint32_t size) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlElementNodeValueByPath_HOOK", &code))
        return code;
    if (path == nullptr || out == nullptr || size == 0) return kBadArgument;
    Doc doc = parse(xmlFile);
    if (!doc) return kParseFailed;
    const xmlNode *node = find_by_path(doc.get(), path);
    return node == nullptr ? kNotFound : copy_text(text_of(node), out, size);
}

uint32_t RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK(const char *xmlFile, uint32_t typeCode, uint32_t *count) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlDstTypeCodeFileNodeNum_HOOK", &code))
        return code;
    return count_nodes(xmlFile, count, type_code_is(typeCode));
}

uint32_t RPM_ParseXmlDstTypeCodeFileNodeNum(const char *xmlFile, uint32_t typeCode, uint32_t *count) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlDstTypeCodeFileNodeNum", &code)) return code;
    return count_nodes(xmlFile, count, type_code_is(typeCode));
}

uint32_t RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK(const char *xmlFile, uint32_t typeCode,
                                                  RPM_FILE_NODE_INFO *nodes, uint32_t capacity) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlDstTypeCodeFileNodeInfo_HOOK", &code))
        return code;
    return read_nodes(xmlFile, nodes, capacity, type_code_is(typeCode));
}

uint32_t RPM_ParseXmlAllFileNodeInfo_HOOK(const char *xmlFile, RPM_FILE_NODE_INFO *nodes, uint32_t capacity) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlAllFileNodeInfo_HOOK", &code)) return code;
    return read_nodes(xmlFile, nodes, capacity, type_code_is(RPM_ALL_TYPE_CODE));
}

uint32_t RPM_ParseXmlDstObjTypeFileNodeNum_HOOK(const char *xmlFile, const char *destObjType,
                                                uint32_t *count) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlDstObjTypeFileNodeNum_HOOK", &code))
        return code;
    if (destObjType == nullptr) return kBadArgument;
    return count_nodes(xmlFile, count, dest_type_is(destObjType));
}

uint32_t RPM_ParseXmlDstObjTypeFileNodeInfo_HOOK(const char *xmlFile, const char *destObjType,
                                                 RPM_FILE_NODE_INFO *nodes, uint32_t capacity) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlDstObjTypeFileNodeInfo_HOOK", &code))
        return code;
    if (destObjType == nullptr) return kBadArgument;
    return read_nodes(xmlFile, nodes, capacity, dest_type_is(destObjType));
}

uint32_t RPM_ParseXmlGetAppInfo_HOOK(const char *xmlFile, RPM_APP_INFO *app) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlGetAppInfo_HOOK", &code)) return code;
    if (app == nullptr) return kBadArgument;
    Doc doc = parse(xmlFile);
    if (!doc) return kParseFailed;
    const xmlNode *entry = find_by_path(doc.get(), "Product/APPList/APP");
    const xmlNode *type = child(entry, "APPType");
    if (type == nullptr) return kNotFound;
    const xmlNode *second = type->next;
    while (second != nullptr && second->type != XML_ELEMENT_NODE)
        second = second->next;
    return copy_pair(type, second, app->szAppType, app->szAppInfo);
}

uint32_t RPM_ParseXmlGetVnfInfo_HOOK(const char *xmlFile, RPM_VNF_INFO *vnf) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlGetVnfInfo_HOOK", &code)) return code;
    if (vnf == nullptr) return kBadArgument;
    Doc doc = parse(xmlFile);
    if (!doc) return kParseFailed;
    const xmlNode *product = find_by_path(doc.get(), "Product/VNF/ProductType");
    if (product == nullptr) return kNotFound;
    const xmlNode *interface = find_by_path(doc.get(), "Product/VNF/InterfaceId");
    return copy_pair(product, interface, vnf->szProductType, vnf->szInterfaceId);
}

uint32_t RPM_ParseXmlGetKeyNodeInfo_HOOK(const char *xmlFile, RPM_KEY_NODE_INFO *keys) {
    if (uint32_t code = 0; zakhost::injected_code("RPM_ParseXmlGetKeyNodeInfo_HOOK", &code)) return code;
    if (keys == nullptr) return kBadArgument;
    Doc doc = parse(xmlFile);
    if (!doc) return kParseFailed;
    const xmlNode *list = find_by_path(doc.get(), "Product/CheckItems");
    if (list == nullptr) return kNotFound;
    std::vector<std::string> items;
    for (const xmlNode *c = list->children; c != nullptr; c = c->next)
        if (named(c, "Item")) items.push_back(text_of(c));
    if (items.size() != 6) return kNotFound;
    (void)memset_s(keys, sizeof(*keys), 0, sizeof(*keys));
    struct Slot {
        char *out;
        size_t size;
    } slots[] = {{keys->szItem1, sizeof(keys->szItem1)}, {keys->szItem2, sizeof(keys->szItem2)},
                 {keys->szItem3, sizeof(keys->szItem3)}, {keys->szItem4, sizeof(keys->szItem4)},
                 {keys->szItem5, sizeof(keys->szItem5)}, {keys->szItem6, sizeof(keys->szItem6)}};
    for (size_t i = 0; i < 6; ++i) {
        uint32_t rc = copy_text(items[i], slots[i].out, slots[i].size);
        if (rc != 0) return rc;
    }
    return 0;
}

uint32_t RPM_ReplaceSrcChar2Dst_HOOK(char *text, char from, char to) {
    int64_t result = 0;
    if (zakhost::injected("RPM_ReplaceSrcChar2Dst_HOOK", &result)) return result ? result : 1;
    if (text == nullptr) return kBadArgument;
    for (char *p = text; *p != '\0'; ++p)
        if (*p == from) *p = to;
    return 0;
}

} // extern "C"
