// Completes words of the command line from the table of verbs and options, and from the cameras that are there.
#include "completion.h"

#include <algorithm>
#include <iostream>
#include <set>

#include "Camera/wqz_camera.hpp"
#include "modes.h"
#include "text.h"

namespace {

using Words = std::vector<std::string>;

/// Prints each word once, and only those that begin as the user typed.
class Candidates {
public:
    explicit Candidates(std::string start) : typed(std::move(start)) {}

    void Add(const std::string& word, const std::string& meaning)
    {
        if (word.starts_with(typed) && seen.insert(word).second) {
            std::cout << Printable(word) << '\t' << Printable(meaning) << '\n';
        }
    }

    const std::string& Typed() const { return typed; }

private:
    std::string typed;
    std::set<std::string> seen;
};

bool Takes_Value(const CLI::Option& option)
{
    return !option.get_positional() && option.get_items_expected_max() > 0;
}

Words Names(const CLI::Option& option)
{
    Words names;
    for (const std::string& name : option.get_snames()) {
        names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back("--" + name);
    }
    return names;
}

/// @return the option of that name, or null
const CLI::Option* Find_Option(const CLI::App& app, const std::string& word)
{
    for (const CLI::Option* option : app.get_options()) {
        const Words names = Names(*option);
        if (std::ranges::find(names, word) != names.end()) {
            return option;
        }
    }
    return nullptr;
}

const CLI::App* Find_Verb(const CLI::App& app, const std::string& word)
{
    const auto verbs = app.get_subcommands([&word](const CLI::App* verb) { return verb->get_name() == word; });
    return verbs.empty() ? nullptr : verbs.front();
}

/// @return the words that are neither options nor their values
Words Positionals(const CLI::App& verb, const Words& words)
{
    Words positionals;
    for (size_t i = 0; i < words.size(); ++i) {
        if (words[i].size() < 2 || words[i][0] != '-') {
            positionals.push_back(words[i]);
        } else if (const CLI::Option* option = Find_Option(verb, words[i]); option != nullptr && Takes_Value(*option)) {
            ++i;
        }
    }
    return positionals;
}

void Add_Cameras(Candidates& candidates)
{
    for (const WQZ_Camera_Info& camera : wqz::List_Cameras()) {
        candidates.Add(camera.node, camera.card);
        candidates.Add(camera.identity, camera.card);
    }
}

/// @return the camera that the first positional word names, or the only camera
wqz::Camera Open_Camera(const Words& positionals)
{
    return wqz::Camera(positionals.empty() ? "" : positionals.front());
}

void Add_Controls(Candidates& candidates, const Words& positionals)
{
    if (positionals.empty()) {
        Add_Cameras(candidates);
    }
    candidates.Add("reset", "set all controls to their defaults");
    for (const WQZ_Camera_Control& control : Open_Camera(positionals).Controls()) {
        candidates.Add(std::string(control.key) + "=", control.name);
    }
}

void Add_Values(Candidates& candidates, const std::string& type, const Words& positionals)
{
    if (type == "PATH") {
        std::cout << "<file>\n";
    }
    if (type != "FORMAT" && type != "WxH") {
        return;
    }
    for (const WQZ_Camera_Offer& offer : Open_Camera(positionals).Modes()) {
        if (type == "FORMAT") {
            candidates.Add(offer.format, offer.description);
        } else {
            candidates.Add(std::to_string(offer.width_min) + "x" + std::to_string(offer.height_min), "");
        }
    }
}

void Add_Options(Candidates& candidates, const CLI::App& app)
{
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : Names(*option)) {
            candidates.Add(name, option->get_description());
        }
    }
}

void Add_Positionals(Candidates& candidates, const CLI::App& verb, const Words& positionals)
{
    for (const CLI::Option* option : verb.get_options()) {
        const std::string type = option->get_positional() ? option->get_type_name() : "";
        if (type.find("name=value") != std::string::npos) {
            Add_Controls(candidates, positionals);
        } else if (type.starts_with("CAMERA") && positionals.empty()) {
            Add_Cameras(candidates);
        }
    }
}

void Complete_Verb(Candidates& candidates, const CLI::App& verb, const Words& before)
{
    const CLI::Option* option = before.empty() ? nullptr : Find_Option(verb, before.back());
    if (option != nullptr && Takes_Value(*option)) {
        Add_Values(candidates, option->get_type_name(), Positionals(verb, before));
    } else if (candidates.Typed().starts_with("-")) {
        Add_Options(candidates, verb);
    } else {
        Add_Positionals(candidates, verb, Positionals(verb, before));
    }
}

}  // namespace

void Print_Completions(const CLI::App& app, const Words& words)
{
    Candidates candidates(words.empty() ? "" : words.back());
    if (words.size() > 1) {
        if (const CLI::App* verb = Find_Verb(app, words.front())) {
            Complete_Verb(candidates, *verb, Words(words.begin() + 1, words.end() - 1));
        }
        return;
    }
    for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; })) {
        candidates.Add(verb->get_name(), verb->get_description());
    }
    Add_Options(candidates, app);
}
