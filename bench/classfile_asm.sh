#!/usr/bin/env bash
# Measures rewriting of java.base by classfile_bench and by ASM (package libasm-java), one after the
# other in one run: bench/classfile_asm.sh <classfile_bench> <jdk home> [rounds]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
bench=$1
jdk=$2
rounds=${3:-6}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$jdk/bin/java" "$here/../tests/support/ExtractClasses.java" "$work/base.bundle" jrt:java.base
"$bench" "$work/base.bundle" "$rounds"
"$jdk/bin/javac" -cp /usr/share/java/asm.jar -d "$work" "$here/AsmBench.java"
"$jdk/bin/java" -XX:+UseSerialGC -Xmx1g -cp "/usr/share/java/asm.jar:$work" AsmBench "$work/base.bundle" $((rounds * 3))
