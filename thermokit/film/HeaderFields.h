#pragma once
// Every field of a film's two headers by name: what `thermokit info` prints
// and what the Python package hands out as a film's header dictionary, from
// one list, so that the two always agree.
//
// VisitFileHeader and VisitImageHeader walk the fields in a fixed order and
// hand each to a visitor with its name and value. Records (`palette`,
// `zero`, `rbf_law`, ...) and lists (`filters`, `integration_s`, ...) open
// with Begin... and close with End; the items of a list have no name (null).
// Fields that exist only while a flag says so (`palette`, `capture_flip`,
// `rbf_law`, ...) come as Null when the flag is clear.
//
// SetHeaderField sets a descriptive field of the file header by the same
// name. The structure of the film (signature, sizes, counts, Point, Line,
// depth) and the records kept behind validity flags are not set by name.
#include <cstdint>
#include <string>

namespace thermokit {

class CPtrOver;

class HeaderFieldVisitor {
public:
    virtual ~HeaderFieldVisitor() = default;
    virtual void Signed(const char* name, int64_t value) = 0;
    virtual void Unsigned(const char* name, uint64_t value) = 0;
    // Floats of the header come widened to double, unchanged.
    virtual void Real(const char* name, double value) = 0;
    // The field's 8-bit text up to its NUL, as stored.
    virtual void Text(const char* name, const std::string& value) = 0;
    virtual void Null(const char* name) = 0;
    virtual void BeginRecord(const char* name) = 0;
    virtual void BeginList(const char* name) = 0;
    virtual void End() = 0;
};

// Every field of the file header, from `signature` to `compensated_calibration`.
void VisitFileHeader(const CPtrOver& film, HeaderFieldVisitor& visitor);
// Every field of the image header last read into the film; readTime is the
// time the reader formed for that image (`time_stamp_s`).
void VisitImageHeader(const CPtrOver& film, double readTime, HeaderFieldVisitor& visitor);

// A value for SetHeaderField: a number, or a text when isText.
struct HeaderValue {
    bool isText = false;
    double number = 0.0;
    std::string text;
};

// Sets the field `name` of the file header (item `index` of the list fields
// `filters`, `housing_temperature` and `integration_s`; index -1 for the
// others). Numbers must fit the field's type (integers for integer fields),
// texts the field's capacity: nothing is cut or wrapped. Returns 1, or 0 with
// why telling what is wrong ("unknown header field", "cannot be set by name",
// "a text expected", "an integer from 0 to 65535 expected", "at most 19
// characters", ...); the header is then unchanged.
int SetHeaderField(CPtrOver& film, const std::string& name, int index, const HeaderValue& value, std::string& why);

// 0 when the field cannot be set by name; else 1 and, for the list fields,
// count gets their length (0 for the others).
int IsSettableHeaderField(const std::string& name, int& count);

}  // namespace thermokit
