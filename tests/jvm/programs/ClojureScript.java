package programs;

import clojure.java.api.Clojure;
import fixtures.Programs;

/** A Clojure script, compiled anew in every round; it calls its function leaf 300 times. */
public final class ClojureScript implements Programs.Program {
    private static final String SCRIPT = String.join(
            "\n", //
            "(ns trial (:require [clojure.string :as s] [clojure.set :as set]))",
            "(defn leaf [x] (* 2 x))", "(defprotocol Shape (area [this]))",
            "(defrecord Square [side] Shape (area [_] (* side side)))",
            "(deftype Circle [r] Shape (area [_] (* 3 r r)))", "(defmulti describe :kind)",
            "(defmethod describe :a [m] (str \"a\" (:n m)))",
            "(defmethod describe :default [m] \"other\")", "(defmacro twice [e] `(do ~e ~e))",
            "(defn fib [n] (if (< n 2) n (+ (fib (- n 1)) (fib (- n 2)))))",
            "(let [a (atom 0) r (ref 0)]", "  (dotimes [i 300] (swap! a + (leaf i)))",
            "  (twice (dosync (alter r inc)))",
            "  (str @a \" \" @r \" \" (fib 15) \" \" (reduce + (pmap #(* % %) (range 60))) \" \"",
            "    (mapv area [(->Square 3) (Circle. 2)]) (describe {:kind :a :n 1}) (describe {})",
            "    (s/join \",\" (sort-by - (set/union #{1 2} #{2 3})))",
            "    (try (/ 1 0) (catch ArithmeticException e (.getMessage e)))",
            "    (vec (take 5 (iterate #(* 3 %) 1N))) (group-by odd? (range 6))",
            "    (loop [i 0 acc []] (if (= i 5) acc (recur (inc i) (conj acc i))))",
            "    (let [p (promise)] (future (deliver p 42)) @p)",
            "    (transduce (comp (filter even?) (map inc)) + (range 100))))");

    @Override
    public String round() {
        return String.valueOf(Clojure.var("clojure.core", "load-string").invoke(SCRIPT));
    }
}
