#include <iostream>
#include <string>
#include <vector>

#include "tools/inscenter/System.h"
#include "tools/inscenter/Tool.h"

int main(int argc, char** argv) {
    const inscenter::StandardStreams streams;
    const std::vector<std::string> words = inscenter::commandWords(argc, argv);
    std::vector<const char*> texts;
    texts.reserve(words.size());
    for (const std::string& word : words) {
        texts.push_back(word.c_str());
    }
    return inscenter::runTool(static_cast<int>(texts.size()), texts.data(), std::cout, std::cerr);
}
