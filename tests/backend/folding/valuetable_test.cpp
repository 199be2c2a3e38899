#include "backend/drivers/gdb.h"
#include "backend/folding/valuetable.h"
#include "backend/os/text.h"
#include "tests/support/testing.h"

namespace {

// As gdb answers, for the clients from 0 on: "value", the number, and so on.
Lines rowsOf(const Lines& answers, std::size_t* groups = nullptr) {
    const Gdb gdb("gdb");
    ValueTable table;
    for (std::size_t i = 0; i < answers.size(); ++i)
        table.add(static_cast<int>(i), gdb.parseValue(answers[i]));
    table.add(0, gdb.parseValue("7")); // is there already
    Lines rows;
    const ValueTable::Report report = table.report();
    for (const auto& [text, clients] : report.rows)
        rows.push_back(Text::list(clients) + " | " + text);
    if (groups) *groups = report.groups.size();
    return rows;
}

TEST(ValueTable, TellsNumbersAndOtherValues) {
    const std::string selected = "\t1\tstep\t", own = "\t0\tmain\t";
    const auto number = [](const std::string& text) { return "value\t" + text + "\t1\t\t" + text; };
    const struct {
        Lines answers, rows;
        std::size_t groups;
    } cases[] = {
        {{number("0.0"), number("1.0"), number("2.0"), number("3.0")},
         {"0:3 | min 0 (0)", "0:3 | max 3 (3)", "0:3 | mean 1.5", "0:3 | sd 1.11803",
          "0 | 0: 1 client", "1 | 1: 1 client", "2 | 2: 1 client", "3 | 3: 1 client"},
         4},
        // The first four are those of the finite ones; what looks equal is one row.
        {{number("-inf"), number("1e300"), number("nan"), number("1.0000000000001e300"), "inf"},
         {"1 3 | min 1e+300 (1)", "1 3 | max 1e+300 (3)", "1 3 | mean 1e+300",
          "1 3 | sd 4.99638e+286", "2 | NaN: 2", "0 4 | inf: 0 4", "1 3 | 1e+300: 2 clients"},
         1},
        {{number("1234567.0"), number("1234568.0")},
         {"0:1 | min 1.23457e+06 (0)", "0:1 | max 1.23457e+06 (1)", "0:1 | mean 1.23457e+06",
          "0:1 | sd 0.5", "0 | 1234567: 1 client", "1 | 1234568: 1 client"},
         2},
        // Integers of 64 bits, which no double tells apart.
        {{number("18446744073709551614"), number("18446744073709551615"),
          number("-9223372036854775807"), number("-9223372036854775808")},
         {"0:3 | min -9.22337e+18 (3)", "0:3 | max 1.84467e+19 (1)", "0:3 | mean 4.61169e+18",
          "0:3 | sd 1.38351e+19", "3 | -9223372036854775808: 1 client",
          "2 | -9223372036854775807: 1 client", "0 | 18446744073709551614: 1 client",
          "1 | 18446744073709551615: 1 client"},
         4},
        {{number("18446744073709551615"), number("18446744073709551613")},
         {"0:1 | min 1.84467e+19 (1)", "0:1 | max 1.84467e+19 (0)", "0:1 | mean 1.84467e+19",
          "0:1 | sd 1", "1 | 18446744073709551613: 1 client", "0 | 18446744073709551615: 1 client"},
         2},
        {{number("nan"), number("nan")}, {"0:1 | NaN: 0:1"}, 0},
        // The largest distance that there is.
        {{number("-1.7e308"), number("1.7e308")},
         {"0:1 | min -1.7e+308 (0)", "0:1 | max 1.7e+308 (1)", "0:1 | mean 0", "0:1 | sd 1.7e+308",
          "0 | -1.7e+308: 1 client", "1 | 1.7e+308: 1 client"},
         2},
        {{"value\t" + own + "true", "x\nvalue\t" + selected + "false", "value\t" + own + "true",
          "No symbol \"x\" in current context.\n"},
         {"0 2 | evaluated in main, the program's innermost frame",
          "1 | evaluated in step, the selected frame", "0 2 | true",
          "3 | No symbol \"x\" in current context.", "1 | false"},
         3},
        // What a gdb without Python says.
        {{"5", "nan(0x8000000000000)", "97 'a'"},
         {"0 | min 5 (0)", "0 | max 5 (0)", "0 | mean 5", "0 | sd 0", "1 | NaN: 1",
          "0 | 5: 1 client", "2 | 97 'a'"},
         2},
    };
    for (const auto& [answers, rows, groups] : cases) {
        std::size_t found = 0;
        EXPECT_EQ(rowsOf(answers, &found), rows);
        EXPECT_EQ(found, groups);
    }
}

TEST(ValueTable, ManyValuesAreTenRowsAtMost) {
    Lines answers;
    for (int i = 0; i <= 50; ++i)
        answers.push_back(std::to_string(i < 40 ? i : i + 50));
    const Lines rows = rowsOf(answers);
    EXPECT_EQ(Lines(rows.begin() + 4, rows.end()),
              (Lines{"0:9 | 0 to 10: 10 clients", "10:19 | 10 to 20: 10 clients",
                     "20:29 | 20 to 30: 10 clients", "30:39 | 30 to 40: 10 clients",
                     "40:50 | 90 to 100: 11 clients"}));
    Lines large;
    for (int i = 0; i <= 10; ++i)
        large.push_back(std::to_string(9007199254740993 + 10 * i));
    const Lines wide = rowsOf(large);
    EXPECT_EQ(wide[4], "0 | 9007199254740993 to 9007199254741003: 1 client");
    EXPECT_EQ(wide.back(), "9:10 | 9007199254741083 to 9007199254741093: 2 clients");
}

} // namespace
