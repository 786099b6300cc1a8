// Forms: a list of fields, one a row, each edited on the message row.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "misc/secret.h"

namespace crv {

/// One field of a form.
struct FormField {
    std::string label;
    std::function<std::string()> value;  ///< the text shown behind the label
    std::function<bool()> edit;          ///< asks for a new value; true when it changed
};

/// A number with the text that stands for it.
struct FormChoice {
    long value;
    const char* text;
};

/// The fields point at values of the caller, which must outlive the form.
FormField textField(const char* label, std::string& value);
/// 0 is shown, and may be typed, as an empty value; at most the maximum is accepted.
FormField numberField(const char* label, long& value, long maximum);
/// Shown as stars, typed masked. An empty entry clears the password, Escape keeps it.
FormField passwordField(const char* label, SecretText& value);
/// Enter takes the next of the choices.
FormField choiceField(const char* label, long& value, std::span<const FormChoice> choices);
/// "tak" or "nie", switched by Enter.
FormField flagField(const char* label, bool& value);

/// The command that ends a form. A null question: going back asks nothing.
struct FormEnd {
    char key = 's';
    const char* label = "Zapi~sz";
    const char* question = "Zapisać zmiany (t/n)?";
    const char* done = "Zmiany zostały zapisane";  ///< shown after success; null: nothing
};

/// Shows the fields until the user saves (save answers whether that worked; the form stays open when it did not) or
/// goes back; changes that are not saved are asked about first, so that none is lost by a stray key. True when saved.
bool runForm(const std::string& title, const std::vector<FormField>& fields, const std::function<bool()>& save,
             const FormEnd& end = {});

}  // namespace crv
