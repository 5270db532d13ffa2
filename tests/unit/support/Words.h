#pragma once

#include <cctype>
#include <string>
#include <utility>

#include "support/Journal.h"

/// Expected texts of a test that runs for several objects: the mark, "<axis>", stands for the object's word, and
/// "<Axis>" for the word with a capital letter. "handle_position<Axis>: stop <axis> (0)" is
/// "handle_positionPan: stop pan (0)" for pan.
class Words {
public:
    Words(const std::string& mark, const std::string& word)
        : _replacements{{"<" + mark + ">", word}, {"<" + Capital(mark) + ">", Capital(word)}} {}

    std::string Text(std::string text) const {
        for (const auto& [from, to] : _replacements) {
            for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
                text.replace(at, from.size(), to);
            }
        }
        return text;
    }

    journal::Lines All(journal::Lines lines) const {
        for (auto& line : lines) line = Text(line);
        return lines;
    }

private:
    static std::string Capital(std::string word) {
        word[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(word[0])));
        return word;
    }

    std::pair<std::string, std::string> _replacements[2];
};
