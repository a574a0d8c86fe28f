// The parameter map: every kind of bad row is refused with its line and
// column; raw values show exactly as raw x scale + offset with the decimals
// written; typed values convert to the raw value that holds them or are
// refused (access, limits, the register, the step, the value list); a map
// written and read back is the same map.

#include "mapcompare.h"
#include "mapimport.h"
#include "parammap.h"

#include <gtest/gtest.h>

namespace {

const char header[] = "name,address,format,scale,offset,unit,min,max,access,default,values\n";

ParameterMap mapOf(const std::string &text)
{
    ParameterMap map;
    std::string error;
    EXPECT_TRUE(parseParameterMap(text, map, error)) << error;
    return map;
}

TEST(ParameterMap, BadRowsAreRefusedWithLineAndColumn)
{
    struct Row
    {
        const char *rows; // after the header
        const char *error; // the sentence's start
        const char *head = header;
    } rows[] = {
        { "\"speed,HR1\n", "line 2, column 1 (name): a quoted field is not closed" },
        { "sp\"eed,HR1\n", "line 2, column 1 (name): a quote inside an unquoted field" },
        { "\"speed\"x,HR1\n", "line 2, column 1 (name): text follows" },
        { "speed,HR1,,,,,,,,,,5\n", "line 2, column 12: a value in a column without a name" },
        { "\n# note, \"quoted\n,,,\nspeed,HR1\n,HR2\n", "line 6, column 1 (name): a parameter needs a name" },
        { "-speed,HR1\n", "line 2, column 1 (name): \"-speed\" is not a name" },
        { "HR7,HR1\n", "line 2, column 1 (name): \"HR7\" reads as an address" },
        { "speed,HR1\nSPEED,HR2\n", "line 3, column 1 (name): \"SPEED\" is the name of line 2 too" },
        { "speed,\n", "line 2, column 2 (address): a parameter needs an address" },
        { "speed,XR1\n", "line 2, column 2 (address): " },
        { "speed,HR1:int16\n", "line 2, column 2 (address): the address column takes the address alone" },
        { "speed,HR1,int17\n", "line 2, column 3 (format): unknown format" },
        { "speed,DO1,int16\n", "line 2, column 3 (format): formats apply to registers" },
        { "speed,HR1,string:200\n", "line 2, column 3 (format): a string takes string:N" },
        { "speed,HR1,hex,1,0.1\n", "line 2, column 5 (offset): an offset applies to numbers" },
        { "speed,HR1,,1e-2\n", "line 2, column 4 (scale): \"1e-2\" is not a decimal number" },
        { "speed,HR1,,0\n", "line 2, column 4 (scale): a scale of 0" },
        { "b,HR110.3,,2\n", "line 2, column 4 (scale): a bit holds 0 or 1" },
        { "x,HR5,float64,0.1\n", "line 2, column 4 (scale): a float register holds its engineering value" },
        { "speed,HR1,,,,,x\n", "line 2, column 7 (min): \"x\" is not a number" },
        { "x,HR5,float32,,,,-1e39\n", "line 2, column 7 (min): -1e39 is beyond what float32" },
        { "speed,HR1,,,,,5,4\n", "line 2, column 8 (max): the max 4 is below the min 5" },
        { "speed,HR1,,,,rpm,-3000\n",
            "line 2, column 7 (min): -3000 is outside what HR1 holds (0 to 65535 rpm" },
        { "speed,HR1,,,,,,,rx\n", "line 2, column 9 (access): \"rx\" is not r, rw or w" },
        { "speed,IR1,,,,,,,rw\n", "line 2, column 9 (access): IR1 is an input register" },
        { "speed,HR1,,,,,,,,,0:off\n", "line 2, column 11 (values): \"0:off\" is not RAW=TEXT" },
        { "speed,DO1,,,,,,,,,2=on\n", "line 2, column 11 (values): the raw value 2 is outside" },
        { "speed,HR1,,,,,,,,,0=off;1=OFF\n", "line 2, column 11 (values): \"1=OFF\" repeats" },
        { "speed,HR1,,,,,,,,,0=5\n",
            "line 2, column 11 (values): \"0=5\" needs a text that is not a number" },
        { "speed,HR1,float32,,,,,,,,0=off\n", "line 2, column 11 (values): a value list applies to whole" },
        { "speed,HR1,,0.1,,,,,,,0=off\n", "line 2, column 11 (values): a value list names raw values: it" },
        { "speed,HR1,,,,rpm,0,100,,101\n", "line 2, column 10 (default): speed takes 0 to 100 rpm: 101" },
        { "speed,HR1,,0.5,,,,,,1.25\n", "line 2, column 10 (default): speed takes steps of 0.5: 1.25" },
        { "speed,HR1,,,,,,,,fast,0=off\n", "line 2, column 10 (default): speed takes off, not \"fast\"" },
        { "speed,HR1,string:1,,,,,,,abc\n", "line 2, column 10 (default): the string takes 2 registers" },
        { "", "line 1, column 3 (scael): unknown column", "name,address,scael\n" },
        { "", "line 1, column 3 (Name): the column is given twice", "name;address;Name\n" },
        { "", "line 2: the header row has no address column", "# a map\nname,unit\n" },
        { "", "the map has no header row", "\n" },
    };
    for (const Row &r : rows) {
        ParameterMap map;
        std::string error;
        EXPECT_FALSE(parseParameterMap(r.head + std::string(r.rows), map, error)) << r.head << r.rows;
        EXPECT_EQ(error.substr(0, std::string(r.error).size()), r.error) << r.head << r.rows;
    }
}

// A drive's map as a spreadsheet saves it: semicolons, a byte-order mark,
// CRLF, quoted fields.
const char driveMap[] = "\xEF\xBB\xBFName;Address;Format;Scale;Offset;Unit;Min;Max;Access;Values\r\n"
                        "speed;HR402;int16;1;;rpm;-3000;3000;;\r\n"
                        "current;HR403;;0.01;;A;0;3;;\r\n"
                        "temp;IR10;int16;0.1;-40;C;;;;\r\n"
                        "ratio;HR404;;0.10;;;;;;\r\n"
                        "mode;HR405;;;;;;;;\"0=off;1=on;2=auto\"\r\n"
                        "alarm;HR406;;;;;;;r;\"0=none;7=over-speed\"\r\n"
                        "flow;HR407;float32;;;l/min;;;;\r\n"
                        "total;HR408;uint32;0.001;;;;;;\r\n"
                        "inverse;HR410;;-0.5;;;;;;\r\n"
                        "brake;DO3;;;;;;;;\r\n"
                        "label;HR420;string:4;;;;;;w;\r\n"
                        "status;HR430;hex;;;;;;;\r\n";

// Raw values read show exactly as raw x scale + offset with the decimals
// written; typed values give the raw value that holds them, or are refused.
TEST(ParameterMap, RawValuesShowExactlyAndTypedValuesGiveTheirRawValue)
{
    const ParameterMap map = mapOf(driveMap);
    struct Row
    {
        const char *name;
        bool read; // raw to shown (with its unit), else typed to raw
        const char *from, *to; // to: or "!" and the error
    } rows[] = {
        { "current", true, "16", "0.16 A" },
        { "current", true, "0", "0.00 A" },
        { "current", true, "65535", "655.35 A" },
        { "temp", true, "65", "-33.5 C" },
        { "temp", true, "-400", "-80.0 C" },
        { "ratio", true, "5", "0.50" },
        { "mode", true, "2", "auto" },
        { "mode", true, "7", "7 (not in the list)" },
        { "alarm", true, "7", "over-speed" },
        { "flow", true, "1.5", "1.5 l/min" },
        { "flow", true, "1e-07", "1e-07 l/min" },
        { "flow", true, "-inf", "-inf l/min" },
        { "total", true, "4294967295", "4294967.295" },
        { "inverse", true, "3", "-1.5" },
        { "label", true, "ab\\x01", "ab\\x01" },
        { "status", true, "0x00FF", "0x00FF" },
        { "speed", true, "timeout", "!speed: the raw value \"timeout\" is not a number" },

        { "current", false, "1.5", "150" },
        { "current", false, "0.1", "10" }, // 0.1 / 0.01 is not 10 in binary floating point
        { "current", false, "2.675", "!current takes steps of 0.01 A: 2.675 is between two" },
        { "current", false, "3.01", "!current takes 0 to 3 A: 3.01 is outside" },
        { "speed", false, "-3000", "-3000" },
        { "speed", false, "1e3", "1000" },
        { "speed", false, "-0x10", "-16" },
        { "speed", false, "+5", "!speed takes a number, not \"+5\"" },
        { "temp", false, "20", "!temp is read-only" },
        { "inverse", false, "-1.5", "3" },
        { "inverse", false, "1", "!inverse takes -32767.5 to 0.0 (what HR410 holds): 1 is outside" },
        { "ratio", false, "0.05", "!ratio takes steps of 0.10: 0.05 is between two" },
        { "mode", false, "AUTO", "2" },
        { "mode", false, "1", "1" },
        { "mode", false, "5", "5" }, // a raw value the list lacks, as a backup stores it
        { "mode", false, "7 (not in the list)", "7" }, // and as a read shows it
        { "flow", false, "2", "2" },
        { "flow", false, "1.75", "1.75" },
        { "flow", false, "1e+30", "1e+30" }, // as a read shows it
        { "flow", false, "1e39", "!flow: 1e39 is beyond what float32:CDAB holds" },
        { "total", false, "4294967.295", "4294967295" },
        { "total", false, "4294967.296",
            "!total takes 0.000 to 4294967.295 (what HR408 holds): 4294967.296 is outside" },
        { "brake", false, "on", "1" },
        { "brake", false, "2", "!brake takes 0 to 1 (what DO3 holds): 2 is outside" },
        { "label", false, "servo 1", "servo 1" },
        { "label", false, "servo 123", "!the string takes 5 registers, more than the 4 given" },
    };
    for (const Row &r : rows) {
        const Parameter *p = map.find(r.name);
        ASSERT_NE(p, nullptr) << r.name;
        std::string value, error;
        const bool ok = r.read ? engineeringValue(*p, r.from, value, error)
                               : rawFromEngineering(*p, r.from, value, error);
        EXPECT_EQ(ok ? (r.read ? withUnit(*p, value) : value) : "!" + error, r.to) << r.name << " " << r.from;
    }
}

TEST(ParameterMap, NamesResolveBeforeAddresses)
{
    const ParameterMap map = mapOf(driveMap);
    struct Row
    {
        const char *text, *tag; // tag: the tag's text, or "!" and the error
    } rows[] = {
        { "SPEED", "HR402:int16" },
        { "HR5:int32", "HR5:int32" },
        { "curent", "!unknown parameter \"curent\" (closest: current)" },
        { "HR0", "!" },
    };
    for (const Row &r : rows) {
        Tag tag;
        const Parameter *p = nullptr;
        std::string error;
        const bool ok = resolveTag(r.text, &map, tag, p, error);
        const std::string expected = r.tag;
        EXPECT_EQ(ok ? tag.text : "!" + error.substr(0, expected.size() - 1), expected) << r.text;
    }
}

TEST(ParameterMap, WrittenMapReadsBackTheSame)
{
    ParameterMap map = mapOf(std::string(
        "name,address,format,scale,offset,unit,min,max,access,default,group,description,values,alarm,motion,"
        "value,station,time,driver\n"
        "gain,HR500,int32:abcd,0.001,-2,\"N,m\",-5,5e-1,w,0.25,gains,\"say \"\"hi\"\"\nnext line\",,,speed,"
        "0.250,3,2026-11-25T05:00:00.000Z,1.2\n"
        "fault,HR501,,,,,,,r,,alarms,,\"0=none;7=over-speed\",yes,alarm,none,3,,\n"
        "name-plate,HR520,string:2,,,,,,,,,,,,,\" ab \",3,,\n"));
    EXPECT_EQ(map.find("name-plate")->backup.at("value"), " ab ");
    const ParameterMap drive = mapOf(driveMap);
    map.parameters.insert(map.parameters.end(), drive.parameters.begin(), drive.parameters.end());
    EXPECT_EQ(mapDifference(map, mapOf(parameterMapCsv(map))), "");
}

// Imports: what each entry gives (name, tag, scale, offset) and what is
// left out with a warning.
TEST(ParameterMap, ImportsTakeWhatTheyCanAndWarnOfTheRest)
{
    const std::string project
        = "<?xml version=\"1.0\"?>\n<modbusscope datalevel=\"5\"><modbus>\n"
          "<device><deviceid>1</deviceid><int32littleendian>true</int32littleendian></device>\n"
          "<device><deviceid>2</deviceid><int32littleendian>false</int32littleendian></device>\n"
          "</modbus><scope>\n"
          "<register><text>Motor speed</text><expression>${h0}/2</expression></register>\n"
          "<register><text>Power</text><expression>${40003:f32b} * 0.1 - 5</expression>"
          "<gain>2</gain></register>\n"
          "<register><text>Torque</text><expression>${i50000@2:s32b}</expression></register>\n"
          "<register><text>Sum</text><expression>${h1} + ${c0}</expression></register>\n"
          "<register><text>Third</text><expression>${h2}/3</expression></register>\n"
          "<register><text>Motor speed</text><expression>${c4}</expression></register>\n"
          "</scope></modbusscope>\n";
    const std::string level2
        = "<modbusscope datalevel=\"2\"><scope>\n"
          "<register><address>40001</address><text>a</text><unsigned>false</unsigned>"
          "<multiply>3</multiply><divide>4</divide></register>\n"
          "<register><address>30010</address><text>b</text><bitmask>0xFF</bitmask></register>\n"
          "</scope></modbusscope>\n";
    struct Row
    {
        std::string text;
        const char *parameters, *warnings;
    } rows[] = {
        { project,
            "Motor-speed HR1 x0.5+0; Torque IR50001:int32:ABCD x1+0; "
            "Motor-speed-2 DO5 x1+0; ",
            "line 7: the register element <gain> is not imported|"
            "line 7: \"Power\" is not imported: a float register holds its engineering value itself: it "
            "takes no scale|"
            "line 8: \"Torque\" reads device 2, imported for whichever station a command names|"
            "line 9: \"Sum\" is not imported: the expression \"${h1} + ${c0}\" is not one register times a "
            "factor plus "
            "an offset|"
            "line 10: \"Third\" is not imported: the expression \"${h2}/3\" is not one register times a "
            "factor plus an "
            "offset|" },
        { level2, "a HR1:int16 x0.75+0; ",
            "line 3: \"b\" is not imported: a shift or bit mask is not imported|" },
        { "Address;Name\nHR402;speed\nIR7\t\nXR1;x\nHR1;HR2\nDO3;brake;extra\n",
            "speed HR402 x1+0; param-IR7 IR7 x1+0; param-HR2 HR1 x1+0; brake DO3 x1+0; ",
            "line 4: \"XR1\" is not imported: |line 6: the fields after the second are not imported|" },
        { "IR7\nHR402;speed, fast\n", "param-IR7 IR7 x1+0; speed-fast HR402 x1+0; ", "" },
    };
    for (const Row &r : rows) {
        ParameterMap map;
        std::vector<std::string> warnings;
        std::string error, parameters, notes;
        const bool xml = r.text[0] == '<';
        ASSERT_TRUE(xml ? importModbusScope(r.text, map, warnings, error)
                        : importAddressList(r.text, map, warnings, error))
            << error;
        for (const Parameter &p : map.parameters)
            parameters += p.name + " " + p.tag.text + " x" + p.scaleText + "+" + p.offsetText + "; ";
        for (const std::string &w : warnings)
            notes += (w.find("XR1") != std::string::npos ? w.substr(0, w.find(": ", 10) + 2) : w) + "|";
        EXPECT_EQ(parameters, r.parameters);
        EXPECT_EQ(notes, r.warnings);
        EXPECT_EQ(mapDifference(map, mapOf(parameterMapCsv(map))), "");
    }
}

} // namespace
