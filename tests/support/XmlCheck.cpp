#include "XmlCheck.h"

#include <sys/wait.h>
#include <cstdio>

bool isWellFormedXml(const std::string& document)
{
    FILE* lint = popen("xmllint --noout - 1>&2", "w");
    if (lint == nullptr) {
        return false;
    }
    fwrite(document.data(), 1, document.size(), lint);
    int status = pclose(lint);
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
