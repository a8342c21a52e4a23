// String helpers of the framework.
#ifndef QE_QESTRINGUTILS_H
#define QE_QESTRINGUTILS_H

#include <string>

namespace qe {

class qeStringUtils {
public:
    enum qeCharSet {
        CS_FILESYSTEM = 0,  // the encoding the file system expects
        CS_UTF8 = 1,
    };

    // Re-encodes text. On Linux file names are UTF-8 byte strings already,
    // so this layer passes the text through unchanged.
    static std::string convertCharset(const std::string& text, qeCharSet from, qeCharSet to) {
        (void)from;
        (void)to;
        return text;
    }
};

}  // namespace qe

#endif
