// SPDX-License-Identifier: MIT
// A message header as a tree: a header holds values (separated by "," on the wire), a value holds
// parameters (separated by ";"), a parameter is an attribute with an optional value ("a=1").
//
// All texts are stored in fixed arrays; longer text is cut. Names and attributes are compared
// exactly, case included. An object owns what is added to it. Only one thread at a time may use an
// object.
//
// A part that cannot be allocated is left out. IsComplete() is then false for its owner and for
// everything that contains the owner, copies included. An incomplete message is never written as
// bytes, because a reply without one of its headers may have another meaning.
//
// Every level has two serialisations. `append_text` writes into a bounded appender. `as_string`
// calls it for a NUL-terminated buffer; the caller guarantees that the buffer is large enough.
#ifndef RTSP_HEADER_H
#define RTSP_HEADER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

class CTextAppender;

// A list that owns its elements. It is a vector because the default constructor of a vector
// allocates nothing. That of a deque may throw, even from `new (std::nothrow)`.
template <class T>
using COwningList = std::vector<std::unique_ptr<T>>;

// Appends `pItem` to `list`, which then owns it. When memory runs out, destroys the item and
// returns false.
template <class T>
bool AppendOwned(COwningList<T>& list, T* pItem) {
    std::unique_ptr<T> item(pItem);
    try {
        list.push_back(std::move(item));
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

class CRtspParameter {
  public:
    CRtspParameter();
    virtual ~CRtspParameter() = default;

    // Replaces the texts; null leaves a text as it is. Always 0.
    int add_attribute(const char* attr, const char* value);
    int reset_value(const char* value);

    [[nodiscard]] const char* get_attr() const { return m_szAttribute; }
    [[nodiscard]] const char* get_value() const { return m_szValue; }  // "" when there is none

    // Appends "attribute", or "attribute=value" when there is a value.
    void as_string(char* out) const;
    void append_text(CTextAppender& out) const;

  private:
    char m_szAttribute[256];
    char m_szValue[256];
};

class CRtspHeaderValue {
  public:
    CRtspHeaderValue() = default;
    explicit CRtspHeaderValue(const char* attr);  // one parameter; none when memory runs out
    CRtspHeaderValue(const char* attr, const char* value);
    virtual ~CRtspHeaderValue() = default;
    CRtspHeaderValue(const CRtspHeaderValue&) = delete;
    CRtspHeaderValue& operator=(const CRtspHeaderValue&) = delete;

    // Appends the parameters in order, separated by ";".
    virtual void as_string(char* out) const;
    virtual void append_text(CTextAppender& out) const;

    // Append one parameter, or nothing when memory runs out. The value takes ownership of a passed
    // object, also on failure; null is ignored.
    void AddParameter(const char* attr, const char* value);
    void AddParameter(const char* attr);
    void AddParameter(CRtspParameter* pParameter);

    // The first parameter with that attribute, or null. The value still owns it.
    CRtspParameter* GetParameter(const char* attr);
    [[nodiscard]] const CRtspParameter* GetParameter(const char* attr) const;

    // A presence test: the ATTRIBUTE text of the first parameter with that attribute, or null.
    // The value text is GetParameter(attr)->get_value().
    [[nodiscard]] const char* GetParameterValue(const char* attr) const;

    [[nodiscard]] size_t ParameterCount() const { return m_parameters.size(); }

    [[nodiscard]] bool IsComplete() const { return !m_bLacksPart; }

    void remove_parameter(const char* attr);  // the first with that attribute, if any

    // A new plain value with copies of the parameters, owned by the caller; null when memory runs
    // out. A parameter that cannot be copied is left out, and the copy is incomplete.
    [[nodiscard]] CRtspHeaderValue* clone() const;

    void Clear();             // destroys all parameters
    void show_value() const;  // prints the value on standard output, for debugging

  protected:
    COwningList<CRtspParameter> m_parameters;

  private:
    bool m_bLacksPart = false;
};

class CRtspHeader {
  public:
    // A new header of that name (null: empty name), owned by the caller; null when memory runs out.
    [[nodiscard]] static CRtspHeader* create_new(const char* name);

    CRtspHeader();
    explicit CRtspHeader(const char* name);
    virtual ~CRtspHeader() = default;
    CRtspHeader(const CRtspHeader&) = delete;
    CRtspHeader& operator=(const CRtspHeader&) = delete;

    // Appends the values in order, separated by ",", and the line end. The message writes the name
    // and ": ".
    virtual void as_string(char* out) const;
    virtual void append_text(CTextAppender& out) const;

    [[nodiscard]] const char* Name() const { return m_szName; }
    [[nodiscard]] bool IsTypeByName(const char* name) const;

    // Appends a value. The header takes ownership, also on failure. Null is ignored.
    void AddHeaderValue(CRtspHeaderValue* pValue);
    // The same for a value that was just allocated: null marks the header as incomplete.
    void AddNewHeaderValue(CRtspHeaderValue* pValue);

    // Appends a value with the whole text as its only parameter. Returns the value, which the
    // header owns; null when memory runs out.
    CRtspHeaderValue* AddHeaderValue(const char* text);

    // The first value, or null. The header still owns it.
    CRtspHeaderValue* GetHeaderValue();
    [[nodiscard]] const CRtspHeaderValue* GetHeaderValue() const;

    // The first value that serialises to exactly `text`, or null. The header still owns it.
    CRtspHeaderValue* GetHeaderValue(const char* text);

    // A new plain header with the same name and clones of all values, owned by the caller; null
    // when memory runs out. A value that cannot be copied is left out, and the copy is incomplete.
    [[nodiscard]] CRtspHeader* clone() const;

    // False when a part of it could not be allocated.
    [[nodiscard]] bool IsComplete() const;
    void MarkIncomplete() { m_bLacksPart = true; }

    void Clear();              // destroys all values
    void show_header() const;  // prints the values on standard output, for debugging

  protected:
    char m_szName[1024];
    COwningList<CRtspHeaderValue> m_headers;

  private:
    bool m_bLacksPart = false;
};

// The transport that a "Transport" header requests.
typedef enum trans_protocol_tag : int {
    protocol_udp = 1,
    protocol_tcp = 2,
    protocol_mcast = 3,
    protocol_over_rtsp = 4,  // RTP interleaved on the RTSP connection
    protocol_http = 5,       // never recognised
} trans_protocol;

typedef enum trans_type_tag : int {
    unicast = 1,
    mcast = 2,
} trans_type;

// Reads a "Transport" header. The static functions accept any header, because the parser creates
// plain headers; the member functions read the object itself. All read the first value only.
class CRtspTransport : public CRtspHeader {
  public:
    CRtspTransport() : CRtspHeader("Transport") {}

    // protocol_udp when the header has no value or names no known transport.
    static trans_protocol GetTransProtocol(const CRtspHeader& header);
    static trans_type GetTransType(const CRtspHeader& header);

    // The first number of "client_port" or "server_port", cut to 16 bits; 0 when missing.
    static unsigned short GetClientPort(const CRtspHeader& header);  // logs the value text
    static unsigned short GetMcastClientPort(const CRtspHeader& header);
    static unsigned short GetServerPort(const CRtspHeader& header);

    // The "destination" text, which the header owns, or null.
    static const char* GetClientAddress(const CRtspHeader& header);
    static const char* GetMcastClientAddress(const CRtspHeader& header);

    // Reads the channel pair of "interleaved". An output stays unchanged when its number cannot be
    // read. Returns 0, or -1 when the header has no value or no such parameter.
    static int GetInterleavedFlag(const CRtspHeader& header, int* first, int* second);

    [[nodiscard]] trans_protocol GetTransProtocol() const { return GetTransProtocol(*this); }
    [[nodiscard]] trans_type GetTransType() const { return GetTransType(*this); }
    [[nodiscard]] unsigned short GetClientPort() const { return GetClientPort(*this); }
    [[nodiscard]] unsigned short GetMcastClientPort() const { return GetMcastClientPort(*this); }
    [[nodiscard]] unsigned short GetServerPort() const { return GetServerPort(*this); }
    [[nodiscard]] const char* GetClientAddress() const { return GetClientAddress(*this); }
    [[nodiscard]] const char* GetMcastClientAddress() const { return GetMcastClientAddress(*this); }
    int GetInterleavedFlag(int* first, int* second) const {
        return GetInterleavedFlag(*this, first, second);
    }

  private:
    // Not used: every result is read from the parameters.
    [[maybe_unused]] unsigned short m_clientport = 0;
    [[maybe_unused]] unsigned short m_serverport = 0;
    [[maybe_unused]] trans_type m_transtype = unicast;
    [[maybe_unused]] trans_protocol m_protocol = protocol_udp;
};

typedef enum RangeType_tag : int {
    TR_SMPTE = 0,
    TR_CLOCK = 1,
    TR_NPT = 2,
} RangeType;

// The value of a "Range" header (RFC 2326, section 12.29): one range, in which 0 is an open end.
class CRtspRangeValue : public CRtspHeaderValue {
  public:
    // `begin` and `end` are seconds for TR_NPT, seconds since 1970-01-01 UTC for TR_CLOCK and
    // milliseconds for TR_SMPTE.
    CRtspRangeValue(unsigned long begin, unsigned long end, RangeType type);

    // Appends the unit, "=" and the range. A value without a range text empties the output.
    void append_text(CTextAppender& out) const override;

    [[nodiscard]] uint64_t Begin() const { return m_begin; }
    [[nodiscard]] uint64_t End() const { return m_end; }
    [[nodiscard]] RangeType Type() const { return m_rtype; }

  private:
    uint64_t m_begin;
    uint64_t m_end;
    RangeType m_rtype;
};

#endif
