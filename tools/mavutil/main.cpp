// mavutil VERB ...: a look into a running terminal. Its help describes all that it does.
#include "Verbs.h"

#include "mavkit/diag/MavTrace.h"

#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <unistd.h>

#ifdef __GLIBCXX__
// Replaces the handler of libstdc++, which prints the name of the exception and would add a
// demangler of 50 KB to a static program.
void __gnu_cxx::__verbose_terminate_handler() { std::abort(); }
// Continues an exception after the cleanup of a function. Nothing here catches an exception, so
// this is never called; without it, an unwinder of 36 KB would be linked into a static program.
extern "C" __attribute__((weak)) void _Unwind_Resume(void*) { std::abort(); }
#endif

namespace {

using mavutil::Arguments;
using mavutil::kBad;
using mavutil::kDone;
using mavutil::kFailed;
using mavutil::Operation;
using mavutil::out;
using mavutil::Quit;
using mavutil::Status;
using mavutil::Verb;

Status Help(const Arguments& arguments);

constexpr Operation kHelpOperations[] = {
    {"", "", "[VERB]", 0, 1, "lists the verbs, or describes VERB", Help},
};
constexpr Verb kHelp = {
    "help", "this text; mavutil help VERB describes a verb", kHelpOperations,
    "mavutil VERB --help does the same, mavutil --version prints the version.\n"};

constexpr const Verb* kVerbs[] = {
    &mavutil::kQueue, &mavutil::kTrace, &mavutil::kTime, &mavutil::kMask, &mavutil::kRecord,
    &mavutil::kHex,   &mavutil::kCrc,   &mavutil::kScan, &mavutil::kShm,  &kHelp};

struct Option {
    char letter; // in the row of an operation
    const char* name;
    const char* value; // null: it has none
    const char* Arguments::*target;
};
constexpr Option kOptions[] = {{'j', "--json", nullptr, nullptr},
                               {'n', "-n", "N", &Arguments::last},
                               {'s', "--since", "TIME", &Arguments::since},
                               {'g', "-g", "TEXT", &Arguments::text}};

bool Is(const char* word, const char* name) {
    return word != nullptr && std::strcmp(word, name) == 0;
}
bool AsksForHelp(const char* word) { return Is(word, "--help") || Is(word, "-h"); }

const Verb& VerbOf(const char* name) {
    for (const Verb* verb : kVerbs)
        if (Is(name, verb->name))
            return *verb;
    Quit(kBad, "no verb '%s': mavutil help lists them", name);
}

// How an operation is called, in a buffer that the next call overwrites.
const char* UsageOf(const Verb& verb, const Operation& operation) {
    static char usage[128];
    std::size_t size = 0;
    const auto append = [&size](const char* blank, const char* text, const char* end = "") {
        size += static_cast<std::size_t>(std::snprintf(usage + size, sizeof usage - size, "%s%s%s",
                                                       *text != '\0' ? blank : "", text, end));
    };
    append("mavutil ", verb.name);
    append(" ", operation.name);
    for (const Option& option : kOptions)
        if (std::strchr(operation.options, option.letter) != nullptr) {
            append(" [", option.name, option.value == nullptr ? "]" : "");
            if (option.value != nullptr)
                append(" ", option.value, "]");
        }
    append(" ", operation.arguments);
    return usage;
}

void PrintHelp(const Verb& verb) {
    constexpr int kColumn = 36; // where the texts begin
    for (const Operation& row : verb) {
        const char* const usage = UsageOf(verb, row);
        const bool together = std::strlen(usage) <= kColumn;
        std::fprintf(out, "  %-*s%s%*s  %s\n", kColumn, usage, together ? "" : "\n",
                     together ? 0 : kColumn + 2, "", row.text);
    }
    std::fputs(verb.notes, out);
}

Status Help(const Arguments& arguments) {
    if (arguments[0] != nullptr) {
        PrintHelp(VerbOf(arguments[0]));
        return kDone;
    }
    std::fputs("mavutil looks into a running terminal: mavutil VERB ...\n", out);
    for (const Verb* verb : kVerbs)
        std::fprintf(out, "  %-7s %s\n", verb->name, verb->summary);
    std::fputs("Exit status: 0 done, 1 nothing found or failed, 2 bad arguments.\n", out);
    return kDone;
}

const Operation& OperationOf(const Verb& verb, const char* name) {
    for (const Operation& row : verb)
        if (*row.name == '\0' || Is(name, row.name))
            return row;
    Quit(kBad, "no %s '%s': see mavutil help %s", verb.name, name != nullptr ? name : "",
         verb.name);
}

// The option that a word is or begins with: -n 20, -n20, --since now, --since=now. `*value` is set
// to the value in the same word, if any.
const Option& OptionOf(const Verb& verb, const Operation& operation, char* word, char** value) {
    for (const Option& option : kOptions) {
        const std::size_t length = std::strlen(option.name);
        if (std::strchr(operation.options, option.letter) == nullptr ||
            std::strncmp(word, option.name, length) != 0)
            continue;
        *value = word + length + (word[length] == '=' && length > 2 ? 1 : 0);
        if (word[length] == '\0' ||
            (option.value != nullptr && (length == 2 || *value > word + length)))
            return option;
    }
    Quit(kBad, "no option '%s' here: write %s", word, UsageOf(verb, operation));
}

// Sorts the words after an operation into options and arguments. Arguments may begin with a dash: a
// number, "-" alone, and all words after "--".
Arguments Parse(const Verb& verb, const Operation& operation, char** word) {
    Arguments arguments = {};
    arguments.words = word; // the options between them are dropped
    for (bool options = true; *word != nullptr; ++word) {
        if (options && Is(*word, "--")) {
            options = false;
            continue;
        }
        const bool dash = **word == '-' && std::strchr("0123456789", (*word)[1]) == nullptr;
        if (!options || !dash) {
            arguments.words[arguments.count++] = *word;
            continue;
        }
        char* value;
        const Option& option = OptionOf(verb, operation, *word, &value);
        if (option.value == nullptr) {
            arguments.json = true;
            continue;
        }
        if (*value == '\0')
            value = *++word;
        if (value == nullptr)
            Quit(kBad, "%s is missing after %s", option.value, option.name);
        arguments.*(option.target) = value;
    }
    arguments.words[arguments.count] = nullptr;
    const bool few = arguments.count < operation.least;
    if (few || arguments.count > operation.most)
        Quit(kBad, "too %s arguments: write %s", few ? "few" : "many", UsageOf(verb, operation));
    return arguments;
}

Status Run(char** word) {
    for (char** each = word; *each != nullptr; ++each)
        if (**each == '\0')
            Quit(kBad, "an argument is empty");
    if (*word == nullptr)
        Quit(kBad, "a verb is missing: mavutil help lists them");
    if (Is(*word, "--version")) {
        std::fputs("mavutil " MAVUTIL_VERSION "\n", out);
        return kDone;
    }
    const Verb& verb = AsksForHelp(*word) ? kHelp : VerbOf(*word);
    if (AsksForHelp(*word++))
        return Help(Arguments{word, *word != nullptr ? 1 : 0, false, nullptr, nullptr, nullptr});
    for (char** each = word; *each != nullptr && !Is(*each, "--"); ++each)
        if (AsksForHelp(*each)) {
            PrintHelp(verb);
            return kDone;
        }
    const Operation& operation = OperationOf(verb, *word);
    if (*operation.name != '\0')
        ++word;
    return operation.run(Parse(verb, operation, word));
}

} // namespace

int main(int argc, char** argv) {
    if (!mavutil::OpenConsole()) {
        std::fputs("mavutil: standard output is closed\n", stderr);
        return kFailed;
    }
    static TraceSetting quiet;
    quiet.traceWay = WAY_NONE;
    MavTrace::Setting = &quiet;
    std::set_new_handler([]() { Quit(kFailed, "out of memory"); });
    const Status status = Run(argv + (argc > 0 ? 1 : 0));
    return mavutil::FlushResults() ? status : kFailed;
}
