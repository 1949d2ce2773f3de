// ToolFilter: grep and awk field printing on a tool's output, in the server.
#include "ToolFilter.h"

std::vector<std::string> ToolFilter::lines(const std::string& text)
{
    // Records as grep and awk read them: split at line breaks; a last line
    // without one is still a line; no line after a final break.
    std::vector<std::string> result;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            result.push_back(text.substr(start));
            break;
        }
        result.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return result;
}

std::string ToolFilter::grep(const std::string& text, const std::string& substring, bool invert)
{
    std::string out;
    for (const std::string& line : lines(text)) {
        if ((line.find(substring) != std::string::npos) != invert) {
            out += line;
            out += '\n';
        }
    }
    return out;
}

std::string ToolFilter::field(const std::string& text, const std::string& separator, int n)
{
    std::string out;
    for (const std::string& line : lines(text)) {
        std::string value;
        if (n == 0) {
            value = line;
        } else if (separator.empty() || separator == " ") {
            int index = 0;
            size_t i = 0;
            while (i < line.size()) {
                while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) {
                    ++i;
                }
                if (i == line.size()) {
                    break;
                }
                size_t end = line.find_first_of(" \t", i);
                if (end == std::string::npos) {
                    end = line.size();
                }
                if (++index == n) {
                    value = line.substr(i, end - i);
                    break;
                }
                i = end;
            }
        } else if (!line.empty()) {  // an empty record has no fields at all
            size_t start = 0;
            for (int index = 1;; ++index) {
                size_t end = line.find(separator, start);
                if (index == n) {
                    value = line.substr(start, end == std::string::npos ? std::string::npos : end - start);
                    break;
                }
                if (end == std::string::npos) {
                    break;
                }
                start = end + separator.size();
            }
        }
        out += value;
        out += '\n';
    }
    return out;
}

std::string ToolFilter::firstLine(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

std::string ToolFilter::apply(const std::string& text, int& status) const
{
    std::string current = text;
    status = 0;
    for (const Step& step : m_steps) {
        if (step.kind == Step::kField) {
            current = field(current, step.text, step.field);
            status = 0;
        } else {
            current = grep(current, step.text, step.kind == Step::kGrepInvert);
            status = current.empty() ? 1 : 0;
        }
    }
    return current;
}
