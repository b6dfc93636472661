#pragma once

#include <QString>

#include "opener/session/Session.h"
#include "sealing/ShareLink.h"

namespace zelvo::opener {

// Localised. A host's name is kept apart from the writing direction of the words around it.

struct StateTexts {
    QString title;
    /// May be empty.
    QString sentence;
};

StateTexts textsOf(const SessionState& state);
/// Why a text is no link, and what to do.
QString sentenceOf(sealing::NoLink why);
/// "%@" replaced.
QString filled(const QString& sentence, const QString& object);
QString isolated(const std::string& name);
/// What the digits are for.
QString digitsSentence();

/// The nearest helper's name to what was typed; empty where nothing of it can stay.
std::string helperName(const QString& typed);

}  // namespace zelvo::opener
