#ifndef HOST_CSVTEXT_H
#define HOST_CSVTEXT_H

// Reading CSV as spreadsheets save it, row by row with the line and column
// of every fault: fields separated by one character (comma, semicolon or
// tab), quoted where they hold it ("a, b", "say ""hi""", line breaks), LF
// or CRLF line ends. White space around a field (and around its quotes) is
// not part of it; inside the quotes it is kept. A field with a quote inside an unquoted text, text after
// a closing quote or a quote left open is refused. Empty rows and rows whose
// first field starts with # are skipped.

#include <string>
#include <vector>

struct CsvRow
{
    int line = 0; // where the row starts, from 1
    std::vector<std::string> fields;
};

class CsvReader
{
public:
    // text without a UTF-8 byte-order mark at its start.
    CsvReader(const std::string &text, char separator);

    // The next row; false at the end, and on a fault with line and column
    // set and error saying what is wrong ("a quoted field is not closed").
    bool next(CsvRow &row);
    bool failed() const { return !error.empty(); }
    int line = 0, column = 0;
    std::string error;

private:
    bool readRow(CsvRow &row);
    bool quotedField(std::string &field);
    void unquotedField(std::string &field);
    bool fail(int column, const char *what);
    bool atLineEnd() const;
    void skipLineEnd();
    void skipBlanks();

    std::string text;
    char separator;
    size_t at = 0;
    int currentLine = 1;
};

// The separator a header line uses: ';' when it has semicolons and no
// commas, a tab when it has tabs and neither, else ','.
char csvSeparator(const std::string &text);

#endif // HOST_CSVTEXT_H
