#include "benchoptions.h"

#include <cstdio>
#include <memory>

namespace {

// The width the usage line and the help keep within.
const size_t Columns = 100;

std::string usageWord(const BenchOption &o)
{
    std::string word = std::string("--") + o.row.name;
    if (o.row.kind != OptionTable::Flag)
        word += std::string(" ") + o.value;
    return o.required ? word : "[" + word + "]";
}

} // namespace

BenchCommandLine::BenchCommandLine(const char *program, std::vector<BenchOption> options)
    : program(program)
    , options(std::move(options))
{
}

bool BenchCommandLine::parse(const std::vector<std::string> &args, bool &help, std::string &error) const
{
    // Short forms become long ones where a word stands as an option, not as
    // the value of the option before it.
    std::vector<std::string> words;
    bool valueNext = false;
    for (const std::string &arg : args) {
        std::string word = arg;
        const BenchOption *named = nullptr;
        for (const BenchOption &o : options)
            if (!valueNext
                && ((o.letter && arg == std::string { '-', o.letter })
                    || arg == std::string("--") + o.row.name))
                named = &o;
        if (named)
            word = std::string("--") + named->row.name;
        valueNext = named && named->row.kind != OptionTable::Flag;
        words.push_back(word);
    }
    auto seen = std::make_shared<std::vector<bool>>(options.size(), false);
    std::vector<OptionTable::Row> rows;
    for (size_t i = 0; i < options.size(); ++i) {
        OptionTable::Row row = options[i].row;
        row.set = [set = row.set, seen, i](const std::string &text, int number, std::string &sentence) {
            (*seen)[i] = true;
            return set(text, number, sentence);
        };
        rows.push_back(row);
    }
    help = false;
    rows.push_back(OptionTable::flag("help", help));
    if (!OptionTable(rows).parse(words, nullptr, error))
        return false;
    for (size_t i = 0; i < options.size() && !help; ++i)
        if (options[i].required && !(*seen)[i]) {
            error = std::string("option --") + options[i].row.name + " is required";
            return false;
        }
    return true;
}

int BenchCommandLine::parse(int argc, char **argv) const
{
    bool help = false;
    std::string error;
    if (!parse(std::vector<std::string>(argv + 1, argv + argc), help, error)) {
        std::fprintf(
            stderr, "%s: %s\n(%s --help shows the usage)\n", program.c_str(), error.c_str(), program.c_str());
        return 2;
    }
    if (!help)
        return -1;
    std::fputs(helpText().c_str(), stdout);
    return 0;
}

std::string BenchCommandLine::usageLine() const
{
    std::string text = "usage: " + program;
    const std::string indent(program.size() + 7, ' ');
    size_t lineStart = 0;
    for (const BenchOption &o : options) {
        const std::string word = usageWord(o);
        if (text.size() - lineStart + 1 + word.size() > Columns) {
            text += "\n" + indent.substr(1);
            lineStart = text.size() - indent.size() + 1;
        }
        text += " " + word;
    }
    return text + "\n";
}

std::string BenchCommandLine::helpText() const
{
    std::string text = usageLine();
    for (const BenchOption &o : options) {
        std::string name = o.letter ? std::string { '-', o.letter, ',', ' ' } : std::string(4, ' ');
        name += std::string("--") + o.row.name;
        if (o.row.kind != OptionTable::Flag)
            name += std::string(" ") + o.value;
        name.resize(std::max<size_t>(name.size() + 2, 30), ' ');
        text += "  " + name + o.help + "\n";
    }
    return text + "  -h, --help                    this text\n";
}
