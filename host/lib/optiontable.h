#ifndef HOST_OPTIONTABLE_H
#define HOST_OPTIONTABLE_H

// The options of a host program's command line as one table: a row names an
// option, says what it takes (nothing, a text, a number in a range) and sets
// it, so that adding an option is adding a row. "--name value" and
// "--name=value" both work, and "-h" stands for "--help". Other words that
// begin with one '-' are refused as unknown options, except negative numbers
// ("-5", "-0x10", "-1.5", "-inf", "-nan") and "-" itself, which are arguments
// like every word that does not begin with '-'.
//
// A table is built over the place its rows set, typically a function
// returning the table of one program for the options struct it fills:
//
//     OptionTable({ OptionTable::flag("json", options.json),
//                   OptionTable::integer("count", 1, 65535, options.count) });

#include <functional>
#include <optional>
#include <string>
#include <vector>

class OptionTable
{
public:
    enum Kind { Flag, Text, Integer };

    struct Row
    {
        const char *name = ""; // without the leading "--"
        Kind kind = Flag;
        int low = 0, high = 0; // Integer: the numbers it takes
        int scope = 0; // a group the program gives a meaning to, such as where the option may stand
        // Sets what the option stands for: text is the value as given
        // (empty for a flag), number its value for an Integer. False with
        // one sentence in error for a value the row refuses.
        std::function<bool(const std::string &text, int number, std::string &error)> set;
        // For shell completion, what the value of a Text row is: "text"
        // (anything; the default), "file", "address" or "words" and the
        // words it takes, such as "words bit byte word dword".
        std::string values = "text";

        // This row with values set, for use in a table:
        // OptionTable::text("map", mapPath).completing("file").
        Row completing(std::string what) const;
    };

    // A flag: takes no value.
    static Row flag(const char *name, bool &target, int scope = 0);
    static Row flag(const char *name, std::function<void()> set, int scope = 0);
    // Any text.
    static Row text(const char *name, std::optional<std::string> &target, int scope = 0);
    static Row text(const char *name, std::function<void(const std::string &)> set, int scope = 0);
    // A text that set reads and may refuse, with one sentence in error.
    static Row checked(
        const char *name, std::function<bool(const std::string &, std::string &error)> set, int scope = 0);
    // A whole decimal number from low to high (textutil.h: parseWholeNumber).
    static Row integer(const char *name, int low, int high, std::optional<int> &target, int scope = 0);
    static Row integer(const char *name, int low, int high, std::function<void(int)> set, int scope = 0);

    explicit OptionTable(std::vector<Row> rows);

    // The row of an option, or nullptr.
    const Row *find(const std::string &name) const;
    // Every row, in the table's order.
    const std::vector<Row> &allRows() const { return rows; }

    // A sentence refusing an option that this table knows but the place
    // being parsed does not allow, or "" to allow it.
    using Refusal = std::function<std::string(const Row &)>;

    // Walks args in order and sets every option given. A word that is not an
    // option goes to arguments; without arguments it is refused. On failure
    // returns false with one sentence in error, such as "unknown option
    // --colour", "option --count needs a value" or "option --count takes a
    // number from 1 to 65535, not \"0\""; the options before it are set.
    bool parse(const std::vector<std::string> &args, std::vector<std::string> *arguments, std::string &error,
        const Refusal &refuse = Refusal()) const;

    // The table for a shell's completion (host/teco.bash-completion), one
    // line per option: "option --NAME KIND [WORDS...]", where KIND is
    // "flag", "number" or the values of a Text row.
    std::string completionList() const;

private:
    std::vector<Row> rows;
};

struct LinkSettings;

// The value of a program's --link option, the same for every program: a link
// text (LinkSettings::parse) with 8 data bits, as Modbus RTU needs. False
// with one sentence in error.
bool parseRtuLink(const std::string &text, LinkSettings &settings, std::string &error);

// The value of an option that names a device, such as --port: not empty.
// False with one sentence in error.
bool checkDeviceOption(const char *option, const std::string &path, std::string &error);

#endif // HOST_OPTIONTABLE_H
