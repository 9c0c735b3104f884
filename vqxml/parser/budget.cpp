// budget.cpp - the copy budget of one parse call. Entity references and DTD
// default attributes make the parser copy nodes it has already built, so the
// size of a parsed document is not bounded by the size of its text: a few
// hundred bytes of nested entity declarations stand for billions of nodes.
// The budget caps what those copies may add to document areas at 8 MiB
// plus 100 bytes per byte of input. It is measured in area bytes (the clone
// meter of the DOM layer charges what each copy step really allocates,
// default attributes of copied elements included), so time and memory stay
// proportional to it. Copies cost far more than the text that asks for
// them (a three-byte reference to a one-character entity adds a node of
// about a hundred bytes; a defaulted attribute a few hundred), and reading
// plain markup already takes some thirty area bytes per input byte, so the
// factor leaves ordinary documents that use entities and defaults freely
// well inside the budget while a document made to multiply is stopped once
// its copies pass it.
#include <cstdio>
#include <cstring>

#include "vqxml/parser/parser.h"

namespace vqxml {

ParseBudget *ParseBudget::active_ = nullptr;

ParseBudget::ParseBudget(const char *text)
    : outer_(active_),
      outerMeter_(cloneMeter),
      limit_(kCopyAllowance + kCopyPerInputByte * static_cast<int64_t>(text != nullptr ? std::strlen(text) : 0)),
      failuresAtStart_(allocationFailures()) {
    meter_ = CloneMeter{limit_, false, 0};
    cloneMeter = &meter_;
    entityText_.allowFor((limit_ - kCopyAllowance) / kCopyPerInputByte);  // the input's length
    active_ = this;
}

ParseBudget::~ParseBudget() {
    cloneMeter = outerMeter_;
    active_ = outer_;
}

bool ParseBudget::spent(Source *source) {
    if (!meter_.spent) return false;
    if (!reported_) {
        reported_ = true;
        char limit[32];
        std::snprintf(limit, sizeof limit, "%lld", static_cast<long long>(limit_));
        addParseError(source != nullptr ? source->line : 0, kExpansionTooLarge, limit);
    }
    return true;
}

}  // namespace vqxml
