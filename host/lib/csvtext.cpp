#include "csvtext.h"

#include "textfile.h"
#include "textutil.h"

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

} // namespace

CsvReader::CsvReader(const std::string &t, char s)
    : text(t.compare(0, 3, utf8ByteOrderMark) == 0 ? t.substr(3) : t)
    , separator(s)
{
}

bool CsvReader::fail(int c, const char *what)
{
    column = c;
    error = what;
    return false;
}

bool CsvReader::atLineEnd() const
{
    return at >= text.size() || text[at] == '\n'
        || (text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n')
        || (text[at] == '\r' && at + 1 == text.size());
}

void CsvReader::skipLineEnd()
{
    if (at < text.size() && text[at] == '\r')
        ++at;
    if (at < text.size() && text[at] == '\n')
        ++at;
    ++currentLine;
}

void CsvReader::skipBlanks()
{
    while (at < text.size() && text[at] != separator && isBlank(text[at]))
        ++at;
}

bool CsvReader::quotedField(std::string &field)
{
    const int c = column;
    for (++at;; ++at) {
        if (at >= text.size())
            return fail(c, "a quoted field is not closed");
        if (text[at] == '"' && !(at + 1 < text.size() && text[at + 1] == '"'))
            break;
        if (text[at] == '"')
            ++at;
        else if (text[at] == '\n')
            ++currentLine;
        field += text[at];
    }
    ++at;
    skipBlanks();
    if (!atLineEnd() && text[at] != separator)
        return fail(c, "text follows a quoted field's closing quote");
    return true; // as quoted, blanks and all
}

void CsvReader::unquotedField(std::string &field)
{
    while (!atLineEnd() && text[at] != separator)
        field += text[at++];
    field = trimmed(field);
}

bool CsvReader::readRow(CsvRow &row)
{
    row.line = currentLine;
    row.fields.clear();
    line = currentLine;
    for (column = 1;; ++column) {
        std::string field;
        skipBlanks();
        if (at < text.size() && text[at] == '"') {
            if (!quotedField(field))
                return false;
        } else {
            unquotedField(field);
            if (field.find('"') != std::string::npos)
                return fail(column,
                    "a quote inside an unquoted field (quote the whole field and double the "
                    "quotes in it)");
        }
        row.fields.push_back(field);
        if (atLineEnd())
            break;
        ++at; // the separator
    }
    skipLineEnd();
    return true;
}

bool CsvReader::next(CsvRow &row)
{
    while (at < text.size() && error.empty()) {
        skipBlanks();
        if (at < text.size() && text[at] == '#') {
            while (!atLineEnd())
                ++at;
            skipLineEnd();
            continue;
        }
        if (!readRow(row))
            return false;
        bool empty = true;
        for (const std::string &f : row.fields)
            empty = empty && f.empty();
        if (!empty && row.fields[0].compare(0, 1, "#") != 0)
            return true;
    }
    return false;
}

char csvSeparator(const std::string &text)
{
    for (const std::string &raw : splitFields(text, '\n')) {
        const std::string line = trimmed(raw);
        if (line.empty() || line[0] == '#')
            continue;
        const bool commas = line.find(',') != std::string::npos;
        if (!commas && line.find(';') != std::string::npos)
            return ';';
        if (!commas && line.find('\t') != std::string::npos)
            return '\t';
        return ',';
    }
    return ',';
}
