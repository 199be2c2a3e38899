#pragma once

#include <string>

enum TokenType : int {
    END = 0,        ///< the line's end; the token is empty
    IDENTIFIER = 1, ///< a letter or underscore, then letters, underscores and digits
    NUMBER = 2,     ///< decimal digits
    SYMBOL = 3,     ///< any other character, or a backslash and the character after it
    QUOTATION = 4,  ///< a quoted text, quotes included, nothing unescaped
    ERRFORMAT = 5,  ///< a quoted text that is not closed
};

/// The lexer of the command language, and the exception for a syntax error: thrown by value, it
/// carries a message and the place in the line.
///
/// Does not scan by itself; call Next. Borrows the line, which must outlive the token and every
/// copy that was thrown. Copies nothing: the rest of the line from any token on is at hand.
class Token {
  public:
    /// Stands before the first token. A null line is a bug of the caller.
    explicit Token(const char* line);

    /// Scans the next token and gives its type.
    TokenType Next();
    /// The type of the token ahead. The text stays that of the current token, but its stored type
    /// is the one ahead: rely on the value given back only.
    TokenType LookAhead();
    /// One step back, so that Next scans the current token again. Only one step is remembered.
    void Retract();
    void SkipSpace();

    /// The rest of the line from the current token on.
    const char* Cursor() const { return begin; }
    /// The message that Throw set; empty until then.
    const char* Error() const { return error; }

    bool operator==(char c) const { return *begin == c; }
    bool operator!=(char c) const { return *begin != c; }
    /// Whether the word begins with the token's text: this is what makes prefixes of words do. The
    /// empty token equals every word.
    bool operator==(const char* word) const;
    bool operator!=(const char* word) const { return !(*this == word); }

    operator char() const { return *begin; }
    /// The value of a number token, as atoi reads it.
    operator int() const;
    operator std::string() const { return std::string(begin, end); }

    /// Throws a copy with the catalog's message of that number.
    [[noreturn]] void Throw(int id);
    /// The same for the place of the token before.
    [[noreturn]] void ThrowPrev(int id);

  private:
    TokenType type = END;
    const char* prev; // start of the token before
    const char* begin;
    const char* end; // one past the current token; the next scan starts here
    const char* error = "";

    TokenType scan();
};
