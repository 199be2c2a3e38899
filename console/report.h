#pragma once

/// What the program that started the console learns of it when it asks for that by the variable
/// VEX_CONSOLE_REPORT, the number of a descriptor.
namespace Report {

bool isWanted();
/// Whether nothing but blanks is left on standard input, as far as can be told without waiting. The
/// blanks are read.
bool inputIsOver();
/// Writes one line: the numbers of refused commands and of lines with a mistake, and whether the
/// input was read to its end. Of a person at a terminal only a failure of the console is told.
void tell(long refusals, long mistakes, bool complete);

} // namespace Report
