#include "probes/SignatureUtil.h"

#include "core/ground/PrimitiveTypes.h"
#include "core/ground/ZVector.h"

namespace {
// Without the bytes 1 to 32 at both ends.
ZString trim(const ZString& text) {
    int from = 0;
    int to = text.getLength();
    while (from < to && static_cast<unsigned char>(text.charAt(from)) <= 32) {
        from++;
    }
    while (to > from && static_cast<unsigned char>(text.charAt(to - 1)) <= 32) {
        to--;
    }
    return text.substring(from, to);
}

bool isIdentifierCharacter(char character, bool first, bool allowWildcard) {
    const unsigned char byte = static_cast<unsigned char>(character);
    if (byte >= 0x80) {
        return true;
    }
    const bool letter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
    const bool digit = byte >= '0' && byte <= '9';
    return letter || byte == '$' || byte == '_' || (digit && !first) ||
           (byte == '*' && allowWildcard);
}

// Splits "@<annotation> <name>"; a part without "@" is all name. False for an annotation without
// a name behind it.
bool splitAnnotation(const ZString& part, ZString& annotation, ZString& name) {
    annotation = ZString();
    name = part;
    if (!part.startsWith("@")) {
        return true;
    }
    const int blank = part.lastIndexOf(' ');
    if (blank <= 1) {
        return false;
    }
    annotation = trim(part.substring(1, blank));
    name = part.substring(blank + 1);
    return true;
}

// The short spellings of parameters; any other type stands as it is.
ZString expandShortName(const ZString& type) {
    if (type == "String" || type == "String[]" || type == "Object" || type == "Object[]") {
        return ZString("java.lang.") + type;
    }
    return type;
}

// "(a, b)" out of the text between the parentheses. Returns the error message.
ZString parseParameters(const ZString& text, ZString& parameters) {
    ZVectorSafe<ZString> items;
    text.split(",", items);
    parameters = ZString("(");
    for (int i = 0; i < items.getSize(); i++) {
        const ZString item = trim(items.get(i));
        if (i > 0) {
            parameters.append(", ");
        }
        if (item.isEmpty() && items.getSize() == 1) {
            break;
        }
        if (!isValidParameterTypePattern(item)) {
            return ZString("parameter pattern is invalid: ") + item;
        }
        parameters.append(expandShortName(item));
    }
    parameters.append(")");
    return ZString();
}

void appendTo(ZVector<char>& text, const char* part) {
    for (; *part != 0; part++) {
        text.push(*part);
    }
}

void appendDimensions(ZString& name, int dimensions) {
    for (int i = 0; i < dimensions; i++) {
        name.append("[]");
    }
}
} // namespace

bool isValidJavaIdentifier(const ZString& text, bool allowWildcard) {
    if (text.isEmpty() || text.startsWith(".") || text.endsWith(".")) {
        return false;
    }
    for (int i = 0; i < text.getLength(); i++) {
        if (!isIdentifierCharacter(text.charAt(i), i == 0, allowWildcard)) {
            return false;
        }
    }
    return true;
}

bool isValidTypeName(const ZString& text, bool allowWildcard) {
    if (text.isEmpty() || text.startsWith(".") || text.endsWith(".") || text.contains("..")) {
        return false;
    }
    ZVectorSafe<ZString> pieces;
    text.split(".", pieces);
    for (int i = 0; i < pieces.getSize(); i++) {
        if (!isValidJavaIdentifier(pieces.get(i), allowWildcard)) {
            return false;
        }
    }
    return true;
}

bool isValidParameterTypePattern(const ZString& text) {
    int bracket = 0;
    while (bracket < text.getLength() && text.charAt(bracket) != '[' &&
           text.charAt(bracket) != ']') {
        bracket++;
    }
    if (!isValidTypeName(text.substring(0, bracket), true)) {
        return false;
    }
    if (bracket == text.getLength()) {
        return true;
    }
    const ZString suffix = text.substring(bracket);
    if (suffix.startsWith("]") || suffix.endsWith("[") || suffix.contains("[[") ||
        suffix.contains("]]")) {
        return false;
    }
    for (int i = 0; i < suffix.getLength(); i++) {
        const char character = suffix.charAt(i);
        if (character != '[' && character != ']' && character != '*') {
            return false;
        }
    }
    return true;
}

// The order of the checks decides which message a user sees.
ZString SignatureUtil::parseMethodPattern(const ZString& pattern, ZString& className,
                                          ZString& methodName, ZString& parameters,
                                          ZString& returnType, ZString& classAnnotation,
                                          ZString& methodAnnotation) {
    const int colon = pattern.indexOf(':');
    const int open = pattern.indexOf('(');
    const int close = pattern.indexOf(')');
    if (colon < 0 || open <= colon || close <= open) {
        return "invalid pattern syntax, must be <class>:<method>(<params>)";
    }
    if (!splitAnnotation(trim(pattern.substring(0, colon)), classAnnotation, className)) {
        return "class pattern with annotation is invalid, must be: @<annotation pattern> "
               "<class pattern>";
    }
    if (!isValidTypeName(className, true)) {
        return ZString("class name pattern is invalid: ") + className;
    }
    if (!classAnnotation.isEmpty() && !isValidTypeName(classAnnotation, true)) {
        return ZString("class annotation pattern is invalid: ") + classAnnotation;
    }
    if (!splitAnnotation(trim(pattern.substring(colon + 1, open)), methodAnnotation, methodName)) {
        return "method pattern with annotation is invalid, must be: @<annotation pattern> "
               "<method pattern>";
    }
    if (!isValidJavaIdentifier(methodName, true) && methodName != "<init>" &&
        methodName != "<clinit>") {
        return ZString("method name pattern is invalid: ") + methodName;
    }
    if (!methodAnnotation.isEmpty() && !isValidTypeName(methodAnnotation, true)) {
        return ZString("method annotation pattern is invalid: ") + methodAnnotation;
    }
    returnType = ZString("*");
    if (!trim(pattern).endsWith(")")) {
        returnType = trim(pattern.substring(close + 1));
        if (!isValidParameterTypePattern(returnType)) {
            return ZString("return type pattern is invalid: ") + returnType;
        }
    }
    return parseParameters(pattern.substring(open + 1, close), parameters);
}

void SignatureUtil::appendParameters(const char* descriptor, int length, ZVector<char>& text) {
    int close = length - 1;
    while (close > 1 && descriptor[close] != ')') {
        close--;
    }
    text.push('(');
    for (int position = 1; position < close;) {
        if (position > 1) {
            appendTo(text, ", ");
        }
        int dimensions = 0;
        while (position < close && descriptor[position] == '[') {
            dimensions++;
            position++;
        }
        if (position < close && descriptor[position] == 'L') {
            for (position++; position < close && descriptor[position] != ';'; position++) {
                text.push(descriptor[position] == '/' ? '.' : descriptor[position]);
            }
            position++;
        } else if (position < close) {
            if (const PrimitiveType* type = findPrimitiveType(descriptor[position])) {
                appendTo(text, type->name);
            }
            position++;
        }
        for (; dimensions > 0; dimensions--) {
            appendTo(text, "[]");
        }
    }
    text.push(')');
}

ZString SignatureUtil::convertMethodSignatureToParameters(const ZString& descriptor) {
    ZVector<char> text(64);
    appendParameters(descriptor.c_str(), descriptor.getLength(), text);
    return ZString(text.data(), text.getSize());
}

ZString SignatureUtil::convertClassSignatureToFullName(const char* signature) {
    const ZString text(signature);
    int dimensions = 0;
    while (dimensions < text.getLength() && text.charAt(dimensions) == '[') {
        dimensions++;
    }
    ZString name = text.substring(dimensions);
    const PrimitiveType* type = name.getLength() == 1 ? findPrimitiveType(name.charAt(0)) : nullptr;
    if (name == "V") {
        name = "void";
    } else if (type) {
        name = type->name;
    } else if (name.getLength() > 1 && name.startsWith("L") && name.endsWith(";")) {
        name = name.substring(1, name.getLength() - 1);
    }
    name.replaceAll('/', '.');
    appendDimensions(name, dimensions);
    return name;
}

ZString className2signature(const ZString& name) {
    if (name.isEmpty()) {
        return name;
    }
    ZString path = name;
    path.replaceAll('.', '/');
    return ZString("L") + path + ";";
}
