#include "mapimport.h"

#include "csvtext.h"
#include "decimal.h"
#include "samplelog.h"
#include "textfile.h"
#include "textutil.h"

#include <QXmlStreamReader>

#include <algorithm>
#include <cctype>
#include <map>

namespace {

// What one imported entry gives, before the map's own checks.
struct Entry
{
    int line = 0;
    std::string text; // the other tool's name for it
    std::string address, format, scale, offset;
};

std::string where(int line) { return "line " + std::to_string(line) + ": "; }

std::string quoted(const std::string &text) { return "\"" + text + "\""; }

// A name of the map's form from a free text: other bytes become '-'.
std::string nameFrom(const std::string &text, const ParameterMap &map)
{
    std::string name;
    for (char c : trimmed(text)) {
        const unsigned char u = static_cast<unsigned char>(c);
        const bool keep = std::isalnum(u) || u == '_' || u == '.' || u == '-';
        if (keep || (!name.empty() && name.back() != '-'))
            name += keep ? c : '-';
    }
    while (!name.empty() && name.back() == '-')
        name.pop_back();
    AddressText address;
    std::string ignored;
    if (name.empty() || AddressText::parse(name, address, ignored, false)
        || AddressText::parse(name, address, ignored, true))
        name = "param-" + name;
    std::string unique = name;
    for (int n = 2; map.find(unique); ++n)
        unique = name + "-" + std::to_string(n);
    return unique;
}

// The entry as a parameter that passes the map file's checks, or a warning.
void addEntry(const Entry &e, ParameterMap &map, std::vector<std::string> &warnings)
{
    const std::string name = nameFrom(trimmed(e.text).empty() ? e.address : e.text, map);
    const std::string description = name == trimmed(e.text) ? "" : trimmed(e.text);
    const std::string text = "name,address,format,scale,offset,description\n" + csvField(name) + ","
        + csvField(e.address) + "," + csvField(e.format) + "," + csvField(e.scale) + "," + csvField(e.offset)
        + "," + csvField(description) + "\n";
    ParameterMap one;
    std::string error;
    if (!parseParameterMap(text, one, error)) {
        const size_t colon = error.find("): ");
        warnings.push_back(where(e.line) + quoted(e.text)
            + " is not imported: " + (colon == std::string::npos ? error : error.substr(colon + 3)));
        return;
    }
    one.parameters[0].line = e.line;
    map.parameters.push_back(one.parameters[0]);
}

// ---- ModbusScope projects

// A register as a ModbusScope reference names it (Modicon 40001, or h0,
// i0, c0, d0 counting from 0) in the panel's form.
bool modbusScopeAddress(const std::string &text, std::string &address)
{
    static const struct
    {
        char prefix;
        const char *area;
        long long modiconBase;
    } areas[] = { { 'c', "DO", 0 }, { 'd', "DI", 10000 }, { 'i', "IR", 30000 }, { 'h', "HR", 40000 } };
    long long n = 0;
    const char first = text.empty() ? '\0' : char(std::tolower(static_cast<unsigned char>(text[0])));
    for (const auto &a : areas)
        if (first == a.prefix && parseWholeNumber(text.substr(1), 0, 65535, n)) {
            address = a.area + std::to_string(n + 1);
            return true;
        }
    if (!parseWholeNumber(text, 1, 40000 + 65536, n))
        return false;
    for (int i = 3; i >= 0; --i)
        if (n > areas[i].modiconBase && (i == 3 || n <= areas[i].modiconBase + 9999)) {
            address = areas[i].area + std::to_string(n - areas[i].modiconBase);
            return true;
        }
    return false;
}

// ModbusScope's type of a register (16b, s16b, 32b, s32b, f32b) as a format.
bool modbusScopeFormat(const std::string &type, bool littleEndian, std::string &format)
{
    const std::string order = littleEndian ? ":CDAB" : ":ABCD";
    const std::string t = lowerCase(type);
    if (t.empty() || t == "16b")
        format = "";
    else if (t == "s16b")
        format = "int16";
    else if (t == "32b" || t == "s32b" || t == "f32b")
        format = (t == "32b" ? "uint32" : t == "s32b" ? "int32" : "float32") + order;
    else
        return false;
    return true;
}

// scale / divisor as a decimal of at most 9 digits, when there is one.
bool divided(Decimal &scale, const Decimal &divisor)
{
    for (int n = 0; n <= 9; ++n) {
        long long q = 0;
        bool fits = true;
        if (wholeQuotient(Decimal { scale.mantissa, scale.exponent + n }, divisor, q, fits)) {
            Decimal result { q, -n };
            return Decimal::parse(result.text(), scale, false, 9);
        }
        if (!fits)
            return false;
    }
    return false;
}

// What follows the register in an expression: *K and /K, then +C or -C.
bool linearTail(const std::string &tail, Decimal &scale, Decimal &offset)
{
    scale = Decimal { 1, 0 };
    offset = Decimal {};
    for (size_t i = 0; i < tail.size();) {
        const char op = tail[i++];
        const size_t end = tail.find_first_not_of("0123456789.", i);
        Decimal k;
        if (!Decimal::parse(tail.substr(i, end - i), k, false, 9) || offset.mantissa != 0)
            return false;
        i = end == std::string::npos ? tail.size() : end;
        if (op == '*' && !multiply(scale, k, scale))
            return false;
        if ((op == '/' && (k.sign() == 0 || !divided(scale, k)))
            || (op != '*' && op != '/' && op != '+' && op != '-'))
            return false;
        if (op == '+' || op == '-')
            offset = op == '+' ? k : Decimal { -k.mantissa, k.exponent };
    }
    return Decimal::parse(scale.text(), scale, false, 9);
}

struct Project
{
    std::map<int, bool> littleEndian; // by device (or connection) id
    bool firstLittleEndian = false;
    int dataLevel = 0;
};

// An expression of data level 3 on: ${REG[@DEVICE][:TYPE]} with a factor and
// an offset. False with the reason.
bool fromExpression(const Project &project, const std::string &expression, Entry &e, std::string &why,
    std::vector<std::string> &warnings)
{
    std::string x;
    for (char c : expression)
        if (!std::isspace(static_cast<unsigned char>(c)))
            x += c;
    const size_t open = x.find("${"), close = x.find('}');
    if (open != 0 || close == std::string::npos || x.find("${", close) != std::string::npos) {
        why = "the expression " + quoted(expression) + " is not one register times a factor plus an offset";
        return false;
    }
    const std::string reference = x.substr(2, close - 2);
    const size_t at = reference.find('@'), colon = reference.find(':');
    long long device = 1;
    const std::string deviceText = at == std::string::npos
        ? "1"
        : reference.substr(at + 1, colon == std::string::npos ? colon : colon - at - 1);
    const std::string type = colon == std::string::npos ? "" : reference.substr(colon + 1);
    Decimal scale, offset;
    const bool known = parseWholeNumber(deviceText, 1, 1000000, device);
    const auto endian = project.littleEndian.find(int(device));
    const bool little = endian == project.littleEndian.end() ? project.firstLittleEndian : endian->second;
    if (!known || !modbusScopeAddress(reference.substr(0, std::min(at, colon)), e.address)
        || !modbusScopeFormat(type, little, e.format) || !linearTail(x.substr(close + 1), scale, offset)) {
        why = "the expression " + quoted(expression) + " is not one register times a factor plus an offset";
        return false;
    }
    if (device != 1)
        warnings.push_back(where(e.line) + quoted(e.text) + " reads device " + std::to_string(device)
            + ", imported for whichever station a command names");
    e.scale = scale.text();
    e.offset = offset.text();
    if (e.address.compare(0, 2, "DO") == 0 || e.address.compare(0, 2, "DI") == 0)
        e.format.clear();
    return true;
}

// Data levels 1 and 2: address, unsigned, multiply, divide (shift and
// bitmask are refused unless they change nothing).
bool fromFixedOperations(const std::map<std::string, std::string> &fields, Entry &e, std::string &why)
{
    auto field = [&](const char *name, const char *fallback) {
        const auto it = fields.find(name);
        return it == fields.end() || trimmed(it->second).empty() ? std::string(fallback)
                                                                 : trimmed(it->second);
    };
    Decimal scale { 1, 0 }, offset;
    const std::string tail = "*" + field("multiply", "1") + "/" + field("divide", "1");
    const std::string shift = field("shift", "0"), mask = lowerCase(field("bitmask", "0xffff"));
    if (shift != "0" || (mask != "0xffff" && mask != "65535")) {
        why = "a shift or bit mask is not imported";
        return false;
    }
    if (!modbusScopeAddress(field("address", ""), e.address) || !linearTail(tail, scale, offset)) {
        why = "the address " + quoted(field("address", "")) + " or the factor " + quoted(tail)
            + " is not imported";
        return false;
    }
    e.format = lowerCase(field("unsigned", "true")) == "false" ? "int16" : "";
    e.scale = scale.text();
    return true;
}

// One <register>: its child elements by name.
void readRegister(
    QXmlStreamReader &xml, const Project &project, ParameterMap &map, std::vector<std::string> &warnings)
{
    static const char *const known[] = { "text", "expression", "address", "unsigned", "multiply", "divide",
        "shift", "bitmask", "color", "valueaxis", "active" };
    std::map<std::string, std::string> fields;
    Entry e;
    e.line = int(xml.lineNumber());
    while (xml.readNextStartElement()) {
        const std::string name = xml.name().toString().toStdString();
        const int line = int(xml.lineNumber());
        fields[name] = xml.readElementText(QXmlStreamReader::IncludeChildElements).toStdString();
        if (std::find(std::begin(known), std::end(known), name) == std::end(known))
            warnings.push_back(where(line) + "the register element <" + name + "> is not imported");
    }
    e.text = fields["text"];
    std::string why;
    const bool ok = fields.count("expression")
        ? fromExpression(project, fields["expression"], e, why, warnings)
        : fromFixedOperations(fields, e, why);
    if (ok)
        addEntry(e, map, warnings);
    else
        warnings.push_back(where(e.line) + quoted(e.text) + " is not imported: " + why);
}

// A <device> or <connection>: its id and word order.
void readLink(QXmlStreamReader &xml, Project &project)
{
    long long id = -1;
    bool little = false, given = false;
    while (xml.readNextStartElement()) {
        const QString name = xml.name().toString();
        const std::string value
            = trimmed(xml.readElementText(QXmlStreamReader::IncludeChildElements).toStdString());
        if (name == "deviceid" || name == "connectionid")
            parseWholeNumber(value, 0, 1000000, id);
        if (name == "int32littleendian") {
            little = lowerCase(value) == "true";
            given = true;
        }
    }
    if (!given)
        return;
    if (project.littleEndian.empty())
        project.firstLittleEndian = little;
    if (id >= 0 && !project.littleEndian.count(int(id)))
        project.littleEndian[int(id)] = little;
}

void readProject(QXmlStreamReader &xml, ParameterMap &map, std::vector<std::string> &warnings)
{
    Project project;
    int depth = 1;
    while (depth > 0 && !xml.atEnd()) {
        const QXmlStreamReader::TokenType token = xml.readNext();
        if (token == QXmlStreamReader::EndElement)
            --depth;
        if (token != QXmlStreamReader::StartElement)
            continue;
        const QString name = xml.name().toString();
        if (name == "device" || name == "connection")
            readLink(xml, project);
        else if (name == "register")
            readRegister(xml, project, map, warnings);
        else
            ++depth;
    }
}

// The separator of an address list: the first comma, semicolon or tab on
// its first line that has one (a name may hold the others).
char listSeparator(const std::string &text)
{
    for (const std::string &raw : splitFields(text, '\n')) {
        const std::string line = trimmed(raw);
        const size_t at = line.find_first_of(",;\t");
        if (!line.empty() && line[0] != '#' && at != std::string::npos)
            return line[at];
    }
    return ',';
}

} // namespace

bool importModbusScope(
    const std::string &text, ParameterMap &map, std::vector<std::string> &warnings, std::string &error)
{
    QXmlStreamReader xml(QByteArray(text.data(), int(text.size())));
    ParameterMap out;
    std::vector<std::string> notes;
    if (!xml.readNextStartElement() || xml.name() != QLatin1String("modbusscope")) {
        error = xml.hasError() ? "not XML: " + xml.errorString().toStdString()
                               : "not a ModbusScope project (its first element is <"
                + xml.name().toString().toStdString() + ">, not <modbusscope>)";
        return false;
    }
    readProject(xml, out, notes);
    if (xml.hasError()) {
        error = "line " + std::to_string(xml.lineNumber()) + ": " + xml.errorString().toStdString();
        return false;
    }
    map = out;
    warnings = notes;
    return true;
}

bool importAddressList(
    const std::string &text, ParameterMap &map, std::vector<std::string> &warnings, std::string &error)
{
    CsvReader reader(text, listSeparator(text));
    CsvRow row;
    ParameterMap out;
    std::vector<std::string> notes;
    bool first = true;
    while (reader.next(row)) {
        AddressText address;
        std::string why;
        const std::string head = lowerCase(row.fields[0]);
        if (first && (head == "address" || head == "addr" || head == "register")) {
            first = false;
            continue;
        }
        first = false;
        Entry e;
        e.line = row.line;
        e.address = row.fields[0];
        e.text = row.fields.size() > 1 ? row.fields[1] : "";
        if (row.fields.size() > 2)
            notes.push_back(where(row.line) + "the fields after the second are not imported");
        if (!AddressText::parse(e.address, address, why))
            notes.push_back(where(row.line) + quoted(e.address) + " is not imported: " + why);
        else
            addEntry(e, out, notes);
    }
    if (reader.failed()) {
        error = "line " + std::to_string(reader.line) + ", column " + std::to_string(reader.column) + ": "
            + reader.error;
        return false;
    }
    map = out;
    warnings = notes;
    return true;
}

bool importMapFile(
    const std::string &path, ParameterMap &map, std::vector<std::string> &warnings, std::string &error)
{
    std::string text, why;
    if (!readTextFile(path, userTextFileLimit, text, why)) {
        error = "cannot read " + path + ": " + why;
        return false;
    }
    const size_t start = text.find_first_not_of(" \t\r\n");
    const bool xml = start != std::string::npos && text[start] == '<';
    if (!(xml ? importModbusScope(text, map, warnings, why) : importAddressList(text, map, warnings, why))) {
        error = path + ": " + why;
        return false;
    }
    for (std::string &w : warnings)
        w = path + ", " + w;
    return true;
}
