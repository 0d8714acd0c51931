#include "classfile/CodeAttribute.h"

#include "classfile/ClassFile.h"

namespace {
const unsigned char RETURN_ONLY[1] = {177};
// Header of an attribute: u2 name index, u4 length.
constexpr int ATTRIBUTE_HEADER = 6;
} // namespace

// Code_attribute, JVMS 4.7.3: u2 max_stack, u2 max_locals, u4 code_length, code,
// u2 exception_table_length, {u2 start, end, handler, catch_type}, attributes.
CodeAttribute::CodeAttribute(const unsigned char* body, ConstantPool& constantPool, int nameIndex,
                             int length)
    : AttributeInfo(ATTRIBUTE_CODE, nameIndex, length), pool(constantPool),
      exceptionTable(constantPool.getArena()), attributes(constantPool.getArena()),
      frames(constantPool.getArena()), addedVariables(constantPool.getArena()), classFile(nullptr),
      method(nullptr), stackMaps(false), modified(false), framesWritten(false) {
    DataInput input(body, length);
    maxStack = input.readUnsignedShort();
    maxLocals = input.readUnsignedShort();
    codeLength = input.readInt();
    Logger::assertTrue(codeLength >= 1 && codeLength < 0x10000, VDK_HERE);
    code = input.take(codeLength);
    const int handlers = input.readUnsignedShort();
    Logger::assertTrue(handlers * 8 <= input.getRemaining(), VDK_HERE);
    exceptionTable.reserve(handlers);
    for (int i = 0; i < handlers; i++) {
        ExceptionTableElement element;
        element.startPc = input.readUnsignedShort();
        element.endPc = input.readUnsignedShort();
        element.handlerPc = input.readUnsignedShort();
        element.catchType = input.readUnsignedShort();
        Logger::assertTrue(element.endPc > element.startPc, VDK_HERE);
        exceptionTable.push(element);
    }
    AttributeInfoReader::createAll(input, pool, attributes);
    Logger::assertEquals(input.getRemaining(), 0, VDK_HERE);
}

CodeAttribute::CodeAttribute(ConstantPool& constantPool, int nameIndex)
    : AttributeInfo(ATTRIBUTE_CODE, nameIndex, 13), pool(constantPool), maxStack(0), maxLocals(0),
      code(RETURN_ONLY), codeLength(1), exceptionTable(constantPool.getArena()),
      attributes(constantPool.getArena()), frames(constantPool.getArena()),
      addedVariables(constantPool.getArena()), classFile(nullptr), method(nullptr),
      stackMaps(false), modified(true), framesWritten(false) {}

void CodeAttribute::writeTo(DataOutput& output) const {
    const int handlers = exceptionTable.getSize();
    unsigned char* at = output.reserve(8 + codeLength + 2 + 8 * handlers);
    DataOutput::storeShort(at, maxStack);
    DataOutput::storeShort(at + 2, maxLocals);
    DataOutput::storeInt(at + 4, codeLength);
    memcpy(at + 8, code, static_cast<size_t>(codeLength));
    at += 8 + codeLength;
    DataOutput::storeShort(at, handlers);
    at += 2;
    for (int i = 0; i < handlers; i++, at += 8) {
        const ExceptionTableElement& element = exceptionTable[i];
        DataOutput::storeShort(at, element.startPc);
        DataOutput::storeShort(at + 2, element.endPc);
        DataOutput::storeShort(at + 4, element.handlerPc);
        DataOutput::storeShort(at + 6, element.catchType);
    }
    AttributeInfoReader::writeAll(attributes, output);
}

void CodeAttribute::setCode(const unsigned char* newCode, int length) {
    Logger::assertNotNULL(newCode, VDK_HERE);
    Logger::assertTrue(length >= 0, VDK_HERE);
    adoptCode(pool.getArena().copyBytes(newCode, length), length);
}

void CodeAttribute::adoptCode(const unsigned char* newCode, int length) {
    addLength(length - codeLength);
    code = newCode;
    codeLength = length;
    modified = true;
}

void CodeAttribute::ensureStackCapacity(int n) {
    if (maxStack < n) {
        maxStack = n < MAX_LIMIT ? n : MAX_LIMIT;
        modified = true;
    }
}

void CodeAttribute::incMaxStackCount(int n) {
    maxStack = maxStack + n < MAX_LIMIT ? maxStack + n : MAX_LIMIT;
    modified = true;
}

void CodeAttribute::incMaxLocalsCount(int n) {
    maxLocals = maxLocals + n < MAX_LIMIT ? maxLocals + n : MAX_LIMIT;
    modified = true;
}

template <typename T>
T* CodeAttribute::findAttribute(AttributeKind kind) {
    for (int i = 0; i < attributes.getSize(); i++) {
        if (attributes[i]->getKind() == kind) {
            return static_cast<T*>(attributes[i]);
        }
    }
    return nullptr;
}

LocalVariableTableAttribute* CodeAttribute::getLocalVariableTable() {
    return findAttribute<LocalVariableTableAttribute>(ATTRIBUTE_LOCAL_VARIABLE_TABLE);
}

LocalVariableTypeTableAttribute* CodeAttribute::getLocalVariableTypeTable() {
    return findAttribute<LocalVariableTypeTableAttribute>(ATTRIBUTE_LOCAL_VARIABLE_TYPE_TABLE);
}

const AttributeInfo* CodeAttribute::findOpaqueAttribute() const {
    for (int i = 0; i < attributes.getSize(); i++) {
        switch (attributes[i]->getKind()) {
        case ATTRIBUTE_LINE_NUMBER_TABLE:
        case ATTRIBUTE_LOCAL_VARIABLE_TABLE:
        case ATTRIBUTE_LOCAL_VARIABLE_TYPE_TABLE:
        case ATTRIBUTE_STACK_MAP_TABLE:
        case ATTRIBUTE_STALE_WHEN_MOVED:
        case ATTRIBUTE_RUNTIME_VISIBLE_TYPE_ANNOTATIONS:
        case ATTRIBUTE_RUNTIME_INVISIBLE_TYPE_ANNOTATIONS:
            break;
        default:
            return attributes[i];
        }
    }
    return nullptr;
}

void CodeAttribute::removeAttribute(int i) {
    addLength(-attributes[i]->getAttributeLength() - ATTRIBUTE_HEADER);
    attributes.remove(i);
    modified = true;
}

int CodeAttribute::getCorrectExceptionHandlerIndex(int pc) const {
    int end = codeLength;
    for (int i = 0; i < exceptionTable.getSize(); i++) {
        const ExceptionTableElement& row = exceptionTable[i];
        // A constructor may have whole ranges ahead of its super call.
        if (row.startPc < pc && row.endPc > pc && row.endPc < end) {
            end = row.endPc;
        }
    }
    return end;
}

void CodeAttribute::insertHandlerFrame(int handler, VerificationType type) {
    ArenaVector<StackMapFrame*>& list = getFrames();
    Logger::assertTrue(!list.isEmpty(), VDK_HERE);
    int at = 0;
    while (at < list.getSize() && list[at]->getOffset() < handler) {
        at++;
    }
    list.insert(at, pool.getArena().make<StackMapFrame>(list[0], handler, type, 0));
}

void CodeAttribute::addExceptionHandler(int start, int end, int handler, VerificationType type) {
    Logger::assertTrue(start >= 0 && end > start && handler >= 0, VDK_HERE);
    exceptionTable.push({start, end, handler, 0});
    addLength(8);
    modified = true;
    if (stackMaps) {
        insertHandlerFrame(handler, type);
    }
    if (start == 0) {
        return;
    }
    const int last = exceptionTable.getSize() - 1;
    for (int first = 0; first < last; first++) {
        if (exceptionTable[first].startPc <= start) {
            const ExceptionTableElement added = exceptionTable[last];
            for (int i = last; i > first; i--) {
                exceptionTable[i] = exceptionTable[i - 1];
            }
            exceptionTable[first] = added;
            return;
        }
    }
}

void CodeAttribute::incExceptionHandlerIndex(int pc, int delta) {
    Logger::assertTrue(delta >= 0, VDK_HERE);
    for (int i = 0; i < exceptionTable.getSize(); i++) {
        ExceptionTableElement& element = exceptionTable[i];
        if (element.startPc > pc) {
            continue;
        }
        if (stackMaps) {
            ArenaVector<StackMapFrame*>& list = getFrames();
            int frame = 1;
            while (frame < list.getSize() && list[frame]->getOffset() != element.handlerPc) {
                frame++;
            }
            Logger::assertTrue(frame < list.getSize(), VDK_HERE);
            list[frame]->setOffset(list[frame]->getOffset() + delta);
        }
        element.endPc += delta;
        element.handlerPc += delta;
        modified = true;
    }
}

void CodeAttribute::shiftExceptionTableAndLineNumbers(int delta, int fromPc) {
    Logger::assertTrue(delta >= 0, VDK_HERE);
    modified = true;
    for (int i = 0; i < exceptionTable.getSize(); i++) {
        ExceptionTableElement& element = exceptionTable[i];
        element.startPc += element.startPc >= fromPc ? delta : 0;
        element.endPc += element.endPc >= fromPc ? delta : 0;
        element.handlerPc += element.handlerPc >= fromPc ? delta : 0;
    }
    for (int i = 0; i < attributes.getSize(); i++) {
        if (attributes[i]->getKind() == ATTRIBUTE_LINE_NUMBER_TABLE) {
            static_cast<LineNumberTableAttribute*>(attributes[i])->shiftLineNumbers(delta);
        }
    }
    if (!stackMaps) {
        return;
    }
    ArenaVector<StackMapFrame*>& list = getFrames();
    for (int i = 1; i < list.getSize(); i++) {
        if (list[i]->getOffset() >= fromPc) {
            list[i]->setOffset(list[i]->getOffset() + delta);
            shiftUninitializedTypeOffset(list[i]->getLocals(), delta, fromPc);
            shiftUninitializedTypeOffset(list[i]->getStack(), delta, fromPc);
        }
    }
}

void CodeAttribute::shiftExceptionTableAndLineNumbers(const CodeOffsets& offsets) {
    modified = true;
    for (int i = 0; i < exceptionTable.getSize(); i++) {
        ExceptionTableElement& element = exceptionTable[i];
        element.startPc = offsets.at(element.startPc);
        element.endPc = offsets.end(element.endPc);
        element.handlerPc = offsets.at(element.handlerPc);
    }
    for (int i = attributes.getSize() - 1; i >= 0; i--) {
        switch (attributes[i]->getKind()) {
        case ATTRIBUTE_LINE_NUMBER_TABLE:
            static_cast<LineNumberTableAttribute*>(attributes[i])->shiftLineNumbers(offsets);
            break;
        case ATTRIBUTE_RUNTIME_VISIBLE_TYPE_ANNOTATIONS:
        case ATTRIBUTE_RUNTIME_INVISIBLE_TYPE_ANNOTATIONS:
            if (!static_cast<TypeAnnotationsAttribute*>(attributes[i])->shift(offsets)) {
                removeAttribute(i);
            }
            break;
        case ATTRIBUTE_STALE_WHEN_MOVED:
            removeAttribute(i);
            break;
        default:
            break;
        }
    }
    if (stackMaps) {
        shiftFrames(offsets);
    }
}

void CodeAttribute::shiftTables(const CodeOffsets& offsets, bool hasPrefix) {
    shiftExceptionTableAndLineNumbers(offsets);
    for (int i = 0; i < attributes.getSize(); i++) {
        const AttributeKind kind = attributes[i]->getKind();
        if (kind == ATTRIBUTE_LOCAL_VARIABLE_TABLE || kind == ATTRIBUTE_LOCAL_VARIABLE_TYPE_TABLE) {
            const LocalVariableList variables =
                static_cast<LocalVariablesAttribute*>(attributes[i])->getLocalVariables();
            checkLocalVariables(variables, pool, maxLocals);
            patchLocalVariables2(variables, offsets, hasPrefix);
        }
    }
}

void CodeAttribute::shiftFrames(const CodeOffsets& offsets) {
    if (frames.isEmpty()) {
        auto* const table = findAttribute<StackMapTableAttribute>(ATTRIBUTE_STACK_MAP_TABLE);
        if (table != nullptr) {
            const int before = table->getAttributeLength();
            table->shift(offsets, pool.getArena());
            addLength(table->getAttributeLength() - before);
        }
        return;
    }
    for (int i = 1; i < frames.getSize(); i++) {
        frames[i]->setOffset(offsets.at(frames[i]->getOffset()));
        shiftUninitializedTypeOffset(frames[i]->getLocals(), offsets);
        shiftUninitializedTypeOffset(frames[i]->getStack(), offsets);
    }
}

int CodeAttribute::addLocalVariableToTable(VerificationType type, bool addToFrames) {
    const int slots = type.getSlots();
    incMaxLocalsCount(slots);
    if (stackMaps) {
        if (addToFrames) {
            addedVariables.push(type);
        } else {
            for (int i = 0; i < slots; i++) {
                addedVariables.push(VerificationType(VERIFICATION_TOP, -1));
            }
        }
    }
    return maxLocals - slots;
}

void CodeAttribute::applyAddedVariables(int fromPc) {
    if (addedVariables.isEmpty()) {
        return;
    }
    ArenaVector<StackMapFrame*>& list = getFrames();
    for (int i = 1; i < list.getSize(); i++) {
        if (list[i]->getOffset() >= fromPc) {
            list[i]->addLocalVariables(addedVariables, maxLocals);
        }
    }
    addedVariables.clear();
    modified = true;
}

void CodeAttribute::parseStackMapTable(ClassFile* owner, const MethodInfo* ownerMethod) {
    classFile = owner;
    method = ownerMethod;
    if (owner->isStrippingStackMaps()) {
        stackMaps = false;
        stripStackMapTable();
        return;
    }
    stackMaps = owner->getMajorVersion() > 49;
}

void CodeAttribute::stripStackMapTable() {
    for (int i = attributes.getSize() - 1; i >= 0; i--) {
        if (attributes[i]->getKind() == ATTRIBUTE_STACK_MAP_TABLE) {
            removeAttribute(i);
        }
    }
}

const StackMapTableAttribute* CodeAttribute::getRawFrames() const {
    if (!stackMaps || !frames.isEmpty()) {
        return nullptr;
    }
    return const_cast<CodeAttribute*>(this)->findAttribute<StackMapTableAttribute>(
        ATTRIBUTE_STACK_MAP_TABLE);
}

ArenaVector<StackMapFrame*>& CodeAttribute::getFrames() {
    Logger::assertTrue(stackMaps, VDK_HERE);
    if (!frames.isEmpty()) {
        return frames;
    }
    frames.push(pool.getArena().make<StackMapFrame>(classFile, method));
    for (int i = 0; i < attributes.getSize(); i++) {
        if (attributes[i]->getKind() == ATTRIBUTE_STACK_MAP_TABLE) {
            static_cast<StackMapTableAttribute*>(attributes[i])
                ->parse(frames, classFile->getThisClass());
            removeAttribute(i);
            break;
        }
    }
    return frames;
}

void CodeAttribute::addStackMapFrames(const ZVector<int>& offsets, int base,
                                      VerificationType stackItem, int initPc) {
    if (!stackMaps || offsets.isEmpty()) {
        return;
    }
    ArenaVector<StackMapFrame*>& list = getFrames();
    Logger::assertTrue(!list.isEmpty(), VDK_HERE);
    ClassArena& arena = pool.getArena();
    ArenaVector<StackMapFrame*> merged(arena);
    merged.reserve(list.getSize() + offsets.getSize());
    merged.push(list[0]);
    StackMapFrame* passed = list[0];
    int next = 1;
    for (int i = 0; i < offsets.getSize(); i++) {
        const int target = base + offsets[i];
        while (next < list.getSize() && list[next]->getOffset() <= target) {
            passed = list[next++];
            merged.push(passed);
        }
        if (target > passed->getOffset()) {
            passed = arena.make<StackMapFrame>(passed, target, stackItem, initPc);
            merged.push(passed);
        }
    }
    while (next < list.getSize()) {
        merged.push(list[next++]);
    }
    list = merged;
    modified = true;
}

void CodeAttribute::addStackMapTableAttributeBeforeWrite() {
    if (!stackMaps || frames.getSize() < 2 || framesWritten) {
        return;
    }
    framesWritten = true;
    const int nameIndex = pool.findOrCreateUtf8(StackMapTableAttribute::NAME);
    long largest = 2;
    for (int i = 1; i < frames.getSize(); i++) {
        largest += frames[i]->getLargestSize();
    }
    ClassArena& arena = pool.getArena();
    Logger::assertTrue(largest <= 0x3fffffff, VDK_HERE);
    unsigned char* const bytes = arena.allocateArray<unsigned char>(static_cast<int>(largest));
    DataOutput::storeShort(bytes, frames.getSize() - 1);
    unsigned char* at = bytes + 2;
    for (int i = 1; i < frames.getSize(); i++) {
        at = frames[i]->writeTo(frames[i - 1], at);
    }
    arena.trim(at);
    const int length = static_cast<int>(at - bytes);
    attributes.push(arena.make<StackMapTableAttribute>(nameIndex, length, bytes));
    addLength(length + ATTRIBUTE_HEADER);
}
