#include "report/versions.h"

#include "backend/os/text.h"

#include <fstream>
#include <string_view>
#include <sys/utsname.h>

namespace {

constexpr std::string_view mark = "vex-mpi ";

// os-release(5): PRETTY_NAME="..."
std::string distribution() {
    constexpr std::string_view name = "PRETTY_NAME=";
    std::ifstream file("/etc/os-release");
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name)) return Text::unquoted(line.substr(name.size()));
    }
    return "";
}

} // namespace

// Libraries have their version as a text; the names of these are those of the makers' sources.
// Where none has one, the file tells by its name what it is.
const char* Versions::mpiCommand() {
    return R"py(python exec("import os, re\ndef find():\n)py"
           R"py( for name, maker in (('ompi_version_string', 'Open MPI'), )py"
           R"py(('MPII_Version_string', 'MPICH'), ('MPIR_Version_string', 'MPICH')):\n)py"
           R"py(  try:\n)py"
           R"py(   text = gdb.parse_and_eval('(char *) &' + name).string('latin-1')[:64]\n)py"
           R"py(   where = gdb.execute('info symbol &' + name, to_string=True).strip()\n)py"
           R"py(   file = where.split(' of ')[1] if ' of ' in where else 'static'\n)py"
           R"py(   return (maker + ' ' if text[:1].isdigit() else '') + text + )py"
           R"py(' (' + os.path.basename(file) + ')'\n)py"
           R"py(  except (gdb.error, UnicodeError): pass\n)py"
           R"py( for each in gdb.objfiles():\n)py"
           R"py(  base = os.path.basename(each.filename or '')\n)py"
           R"py(  if re.match(r'lib(mpi|mpich|mpi_(intel|cray|gnu|ibm)[^.]*|mpt)\.so', base): )py"
           R"py(return base\n)py"
           R"py(found = find()\nif found: print('vex-mpi ' + found)", {'gdb': gdb}))py";
}

std::string Versions::mpiOf(const std::string& line) {
    return line.starts_with(mark) ? line.substr(mark.size()) : "";
}

std::string Versions::system() {
    utsname names{};
    std::string text = distribution();
    if (::uname(&names) != 0) return text;
    return text + (text.empty() ? "" : ", ") + names.sysname + " " + names.release + " " +
           names.machine;
}
