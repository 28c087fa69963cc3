// Interface description files: a flat stream of tokens separated by white
// space, read into a token list and then parsed into the node tree of one
// interface.
#ifndef ORBELLE_PIRCSV_H
#define ORBELLE_PIRCSV_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "repository/pirnod.h"

// Every failure is a PirException: "can't open .csv file" from read,
// "invalid csv record" from read (a token that is too long) and from the
// parsing operations.
class PirCsvFile {
public:
    // Appends all tokens of the file filNam.
    void read(const char *filNam);
    // Appends all tokens of size bytes held in memory, as read does for a file.
    void readText(const char *bytes, size_t size);
    bool empty() const { return tokens_.empty(); }
    const std::vector<std::string> &tokens() const { return tokens_; }

    // Parses the whole token list into the children of intNod, an empty
    // interface node owned by the caller. After a failure intNod holds what
    // had been appended so far.
    void parse(PirIntNod *intNod);

    // Record operations. Each starts behind the record's first token (a type
    // record at its name) and moves pos behind what it consumed.
    void parseAtt(size_t &pos, PirAttNod *attNod);
    void parseOpr(size_t &pos, PirOprNod *oprNod);
    void parseRes(size_t &pos, PirResNod *resNod);
    void parsePar(size_t &pos, PirParNod *parNod);
    void parseExc(size_t &pos, PirExcNod *excNod);
    void parseTyp(size_t &pos, PirTypNod *typNod);

private:
    void feed(const char *bytes, size_t size);
    void finish();
    const std::string &next(size_t &pos) const;
    uint32_t readNumber(size_t &pos) const;
    uint32_t readMemberCount(size_t &pos) const;
    void parseChildType(size_t &pos, PirNod *parent);

    std::vector<std::string> tokens_;
    // Tokeniser state between two pieces of input.
    bool inComment_ = false;
    std::string buffer_;
    // Parser state: nesting of type records and product of enclosing arrays.
    int depth_ = 0;
    uint64_t arrayProduct_ = 1;
};

#endif
