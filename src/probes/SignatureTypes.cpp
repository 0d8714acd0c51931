#include "classfile/MethodInfo.h"
#include "probes/SignatureUtil.h"

void getSignatureTypes(const ZString& descriptor, ZVectorSafe<ZString>& types,
                       ZString& returnType) {
    const Utf8View view(descriptor.c_str(), descriptor.getLength());
    MethodInfo::getParameterTypesBySignature(view, types);
    returnType = MethodInfo::getReturnTypeBySignature(view);
}
