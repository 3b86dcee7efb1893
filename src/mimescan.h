// SPDX-License-Identifier: MIT
// A small scanner over received bytes. It never reads outside its range, in any mode.
#ifndef MIMESCAN_H
#define MIMESCAN_H

#include <memory>

// A slice of text: not terminated, not owned.
struct string_node {
    const char* value = nullptr;
    int len = 0;
};

// A read cursor over `length` bytes, which must outlive it and stay unchanged.
class CMimeStream {
  public:
    CMimeStream(const char* buf, int length);

    int read();                      // the next byte (0 to 255) and advance; -1 at the end
    [[nodiscard]] int peek() const;  // the same without advancing
    int read(char* out, int n);      // copies up to `n` bytes, returns how many
    void back(int c);                // steps back one byte, unless `c` is -1
    [[nodiscard]] const char* ptr() const { return m_buf + m_offset; }
    [[nodiscard]] int offset() const { return m_offset; }
    [[nodiscard]] int length() const { return m_length; }

  private:
    const char* m_buf;
    int m_length;
    int m_offset = 0;
};

// One piece of the scanned text and the character that ended it.
class CMimeToken {
  public:
    static constexpr int END_OF_DATA = 255;
    static constexpr int END_OF_LINE = '\n';

    [[nodiscard]] bool hasValue() const { return m_conten.len != 0; }

    string_node m_conten;
    int m_lastChar = -1;  // 0 to 255; -1 before anything was scanned
};

// Holds the text of tokens that span folded lines, for as long as those tokens are used.
class CMimeFoldStore {
  public:
    // The first call allocates `nBytes` bytes in total; later ones do nothing. False when memory
    // runs out.
    bool Reserve(int nBytes);
    // Appends to the current text. Without enough room, returns false and appends nothing.
    bool Append(const char* pText, int nLen);
    // The position of the next byte, and thus the start of a new text.
    [[nodiscard]] const char* End() const { return m_buf.get() + m_used; }
    void Clear();  // frees everything; tokens that point here become invalid
    // Whether a folded text was cut since the last Clear because memory ran out.
    [[nodiscard]] bool IsOutOfMemory() const { return m_bOutOfMemory; }

  private:
    std::unique_ptr<char[]> m_buf;
    int m_size = 0;
    int m_used = 0;
    bool m_bOutOfMemory = false;
};

// Cuts tokens from a stream.
class CMimeScanner {
  public:
    // Folded tokens are joined in `pFolded`. Without it, or when it is out of memory, a folded
    // token keeps its first line only.
    explicit CMimeScanner(CMimeStream& input, CMimeFoldStore* pFolded = nullptr)
        : m_input(input), m_pFolded(pFolded) {}

    void SkipWS();  // blanks and tabs

    // Word mode (`szDelimiters` is null): a token is a quoted text, or any one character and the
    // characters after it. It ends before one of " \t=:;,-" or a control character, which is not
    // consumed.
    // Delimiter mode: a token ends before one of the delimiters, which is consumed, or at the end
    // of the line. A NUL always is a delimiter. Folded lines are joined (RFC 2326, section 4.2).
    CMimeToken next_token(const char* szDelimiters);

    [[nodiscard]] int offset() const { return m_input.offset(); }

  private:
    enum class Fold {
        NONE,    // one line so far: the text is a slice of the stream
        JOINED,  // several lines, joined in the store
        CUT,     // several lines, but no room to join them: only the first one remains
    };

    CMimeToken next_word();
    CMimeToken next_delimited(const char* szDelimiters);
    void read_quoted(CMimeToken& token);
    void read_unquoted(CMimeToken& token);
    void skip_line_end_pair(int c);
    void take_byte(CMimeToken& token, char c, Fold fold);
    bool begin_join(CMimeToken& token);

    CMimeStream& m_input;
    CMimeFoldStore* m_pFolded;
};

#endif
