package programs;

import fixtures.Programs;
import groovy.lang.Binding;
import groovy.lang.GroovyShell;

/** A Groovy script, compiled anew in every round; it calls Counted.leaf 300 times. */
public final class GroovyScript implements Programs.Program {
    private static final String SCRIPT = String.join(
            "\n", //
            "class Counted { static int leaf(int i) { i * 2 } }",
            "class Point { int x, y; Point plus(Point o) { new Point(x: x + o.x, y: y + o.y) } }",
            "@groovy.transform.Immutable class Fixed { String name; int value }",
            "@groovy.transform.CompileStatic class Quick {",
            "    static long sum(int n) { long s = 0; for (int i in 0..<n) { s += i }; s } }",
            "out.println((1..50).collect { new Point(x: it, y: -it) }.inject { a, b -> a + b }.x)",
            "int sum = 0; 300.times { sum += Counted.leaf(it) }; out.println(sum)",
            "out.println(new Fixed('n', 7)); out.println(Quick.sum(1000))",
            "def map = [a: 1, b: [2, 3], c: [d: 'text']]",
            "out.println(new groovy.json.JsonBuilder(map))",
            "out.println(new groovy.json.JsonSlurper().parseText('{\"k\": [1, 2.5, null]}'))",
            "new groovy.xml.MarkupBuilder(out).root { item(id: 1, 'x'); item(id: 2) }",
            "String.metaClass.shout = { -> delegate.toUpperCase() + '!' }",
            "out.println('meta'.shout())",
            "try { 'x'.missing() } catch (MissingMethodException e) { out.println(e.method) }",
            "try { 1.intdiv(0) } catch (ArithmeticException e) { out.println(e.message) }",
            "out.println(('a'..'e').permutations().size())",
            "out.println((1..20).collectEntries { [it, it ** 2] }.findAll { k, v -> v % 3 == 0 })",
            "def trampoline; trampoline = { n, acc -> n < 2 ? acc : trampoline.trampoline(n - 1, n * acc) }",
            "out.println(trampoline.trampoline()(25, 1G))");

    @Override
    public String round() {
        java.io.StringWriter text = new java.io.StringWriter();
        Binding binding = new Binding();
        binding.setVariable("out", new java.io.PrintWriter(text, true));
        new GroovyShell(binding).evaluate(SCRIPT);
        return text.toString();
    }
}
