#pragma once

#include <cstddef>
#include <cstdio>
#include <map>
#include <vector>

/// The value of an option. Tagless: the option table says which member is the valid one.
class Value {
  public:
    Value() : string(nullptr) {}
    Value(char* text) : string(text) {}
    Value(int number) : integer(number) {}
    Value(bool flag) : boolean(flag) {}
    Value(const char*) = delete; // would become a bool

    operator FILE*() const { return file; }
    operator char*() const { return string; }
    operator int() const { return integer; }
    operator bool() const { return boolean; }

  private:
    union {
        FILE* file;
        char* string;
        int integer;
        bool boolean;
    };
};

enum ArgType { ARG_NULL = 0, ARG_STRING = 1, ARG_INTEGER = 2, ARG_BOOLEAN = 3 };

/// One row of an option table. The rows of positional arguments, all required, come first; the
/// options follow, and a row of type ARG_NULL ends the table.
struct ArgDescription {
    ArgType type;
    char option;        ///< the option letter, 0 for a positional argument
    const char* name;   ///< the name of the value, for usage and messages
    const char* detail; ///< one line for usage
};

/// Command-line words as typed values, by an option table.
///
/// The value of an option stands in the same word behind its letter or in the next word; letters of
/// boolean options may be followed by further letters: -s5, -s 5, -hs5. Borrows argv and the table;
/// string values point into argv.
class Argument {
  public:
    /// Parses at once. Throws Error for words that the table does not allow. With option h, or
    /// without any word where the table requires some, prints the usage and exits with status 0,
    /// but not when a word was wrong.
    Argument(int argc, char** argv, ArgDescription* table);

    /// Prints the usage on standard output.
    void Usage() const;

    const char* getExecutable() const { return executable; }
    /// The options by letter; an option given twice is there twice, in order.
    const std::multimap<char, Value>& getOptions() const { return options; }
    /// The positional arguments in order.
    const std::vector<Value>& getArguments() const { return arguments; }

  private:
    const char* executable;
    const ArgDescription* args;
    int numRequired = 0;
    int numOptional = 0;
    std::multimap<char, Value> options;
    std::vector<Value> arguments;

    void Preprocess();
    /// The row of an option letter, -1 when there is none.
    int SearchOption(char option) const;
    /// Stores one option; value may be null. Gives back whether the value was used.
    bool ProcessOption(char option, char* value);
    void ProcessArgument(char* word);
    /// The letters of a word behind its "-"; next is the word after it or null. Gives back whether
    /// next was used.
    bool processLetters(char* letters, char* next);
};
