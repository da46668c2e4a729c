// qavpkg vercfg: writes DIR/vercfg.xml describing the files of DIR.
#include <dirent.h>
#include <libxml/tree.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "pkg_util.h"
#include "qavpkg.h"

namespace {

constexpr const char *kName = "vercfg";

// Element paths below Product, in the order they are written, with their defaults.
const std::vector<std::pair<std::string, std::string>> kElements = {
    {"PackageType", "VNFC"},
    {"VersionType", "BaseSoftware"},
    {"Version", "V100R001"},
    {"BaseVersion", "V100R001"},
    {"NeType", "TESTNE"},
    {"InterfaceId", "IF001"},
    {"NermVersion", "NERM1"},
    {"VNF/InterfaceId", "VNFIF001"},
    {"VNF/ProductType", "TESTPRODUCT"},
    {"APPList/APP/APPType", "TESTAPP"},
    {"APPList/APP/APPInfo", "test application"},
};

struct FileNode {
    std::string name;
    std::string typeCode = "0";
    std::string destObjType;
    std::string nodeType = "0";
    std::string attr = "0";
    std::string sha = "auto";
};

void list_files(const std::string &dir, const std::string &prefix, std::vector<std::string> *names) {
    DIR *d = opendir(dir.c_str());
    if (d == nullptr) return;
    while (struct dirent *entry = readdir(d)) {
        std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        std::string path = dir + "/" + name;
        struct stat st {};
        if (lstat(path.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode))
            list_files(path, prefix + name + "/", names);
        else if (S_ISREG(st.st_mode) && !(prefix.empty() && name == "vercfg.xml"))
            names->push_back(prefix + name);
    }
    closedir(d);
}

// The device reads type codes, node types and attributes as numbers: refuse what it could not.
bool numeric(const std::string &text) {
    uint32_t value = 0;
    return qavpkg::util::to_u32(text, &value);
}

// "NAME[,type=N][,dest=T][,node=N][,attr=N][,sha=auto|none|HEX]"
bool parse_file_option(const std::string &text, FileNode *node) {
    size_t start = 0;
    bool first = true;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        std::string part = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (first) {
            node->name = part;
            first = false;
        } else {
            size_t eq = part.find('=');
            if (eq == std::string::npos) return false;
            std::string key = part.substr(0, eq), value = part.substr(eq + 1);
            if (key == "type")
                node->typeCode = value;
            else if (key == "dest")
                node->destObjType = value;
            else if (key == "node")
                node->nodeType = value;
            else if (key == "attr")
                node->attr = value;
            else if (key == "sha")
                node->sha = value;
            else
                return false;
        }
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return !node->name.empty() && numeric(node->typeCode) && numeric(node->nodeType) && numeric(node->attr);
}

xmlNodePtr child_at(xmlNodePtr root, const std::string &path, const std::string &text) {
    xmlNodePtr node = root;
    size_t start = 0;
    for (;;) {
        size_t slash = path.find('/', start);
        std::string part = path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (slash == std::string::npos)
            return xmlNewTextChild(node, nullptr, BAD_CAST part.c_str(), BAD_CAST text.c_str());
        xmlNodePtr next = nullptr;
        for (xmlNodePtr c = node->children; c != nullptr; c = c->next)
            if (c->type == XML_ELEMENT_NODE && part == reinterpret_cast<const char *>(c->name)) next = c;
        node = next != nullptr ? next : xmlNewChild(node, nullptr, BAD_CAST part.c_str(), nullptr);
        start = slash + 1;
    }
}

int run_vercfg(const std::vector<std::string> &args) {
    if (args.empty()) return qavpkg::fail(kName, "missing DIR");
    const std::string dir = args[0];
    std::map<std::string, std::string> values(kElements.begin(), kElements.end());
    std::vector<std::string> omitted;
    std::vector<FileNode> nodes;
    std::string checkItems = "item1,item2,item3,item4,item5,item6";
    std::string output = dir + "/vercfg.xml";
    std::string defaultType = "0";
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (i + 1 >= args.size()) return qavpkg::fail(kName, "option " + a + " needs a value");
        const std::string &v = args[++i];
        if (a == "--set") {
            size_t eq = v.find('=');
            if (eq == std::string::npos || values.count(v.substr(0, eq)) == 0)
                return qavpkg::fail(kName, "--set needs ELEMENT=VALUE with a known element: " + v);
            values[v.substr(0, eq)] = v.substr(eq + 1);
        } else if (a == "--omit") {
            omitted.push_back(v);
        } else if (a == "--file") {
            FileNode node;
            if (!parse_file_option(v, &node))
                return qavpkg::fail(kName, "bad --file " + v + " (type, node and attr take numbers)");
            nodes.push_back(node);
        } else if (a == "--type") {
            if (!numeric(v))
                return qavpkg::fail(kName, "--type needs a numeric type code (decimal or 0x hex): " + v);
            defaultType = v;
        } else if (a == "--check-items") {
            checkItems = v;
        } else if (a == "--output") {
            output = v;
        } else {
            return qavpkg::fail(kName, "unknown option " + a);
        }
    }
    struct stat st {};
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return qavpkg::fail(kName, dir + " is not a directory");
    if (nodes.empty()) {
        std::vector<std::string> names;
        list_files(dir, "", &names);
        std::sort(names.begin(), names.end());
        for (const auto &name : names) {
            FileNode node;
            node.name = name;
            node.typeCode = defaultType;
            nodes.push_back(node);
        }
    }

    xmlDocPtr doc = xmlNewDoc(BAD_CAST "1.0");
    xmlNodePtr root = xmlNewNode(nullptr, BAD_CAST "Product");
    xmlDocSetRootElement(doc, root);
    auto isOmitted = [&](const std::string &key) {
        return std::find(omitted.begin(), omitted.end(), key) != omitted.end();
    };
    for (const auto &[key, unused] : kElements) {
        (void)unused;
        if (!isOmitted(key)) child_at(root, key, values[key]);
    }
    if (!isOmitted("CheckItems")) {
        xmlNodePtr items = xmlNewChild(root, nullptr, BAD_CAST "CheckItems", nullptr);
        size_t start = 0;
        for (;;) {
            size_t comma = checkItems.find(',', start);
            std::string item =
                checkItems.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
            xmlNewTextChild(items, nullptr, BAD_CAST "Item", BAD_CAST item.c_str());
            if (comma == std::string::npos) break;
            start = comma + 1;
        }
    }
    xmlNodePtr list = xmlNewChild(root, nullptr, BAD_CAST "FileList", nullptr);
    for (const auto &node : nodes) {
        std::string sha = node.sha;
        if (sha == "auto") sha = qavpkg::util::sha256_file(dir + "/" + node.name);
        if (sha == "none") sha.clear();
        xmlNodePtr file = xmlNewTextChild(list, nullptr, BAD_CAST "File", BAD_CAST node.name.c_str());
        xmlSetProp(file, BAD_CAST "TypeCode", BAD_CAST node.typeCode.c_str());
        xmlSetProp(file, BAD_CAST "DestObjType", BAD_CAST node.destObjType.c_str());
        xmlSetProp(file, BAD_CAST "NodeType", BAD_CAST node.nodeType.c_str());
        xmlSetProp(file, BAD_CAST "Attr", BAD_CAST node.attr.c_str());
        xmlSetProp(file, BAD_CAST "SHA256", BAD_CAST sha.c_str());
    }
    bool saved = qavpkg::util::save_xml(doc, output);
    xmlFreeDoc(doc);
    if (!saved) return qavpkg::fail(kName, qavpkg::util::cannot_write(output));
    return qavpkg::wrote(kName, output + " (" + qavpkg::counted(nodes.size(), "file", "files") + ")");
}

const qavpkg::Command kVercfg{
    kName,
    "DIR [--set ELEMENT=VALUE] [--omit ELEMENT] [--type CODE] [--check-items A,B,C,D,E,F]\n"
    "        [--file NAME[,type=N][,dest=T][,node=N][,attr=N][,sha=auto|none|HEX]]... [--output FILE]\n"
    "        write DIR/vercfg.xml listing the files of DIR (or the --file nodes) with SHA-256 digests",
    &run_vercfg};

} // namespace
