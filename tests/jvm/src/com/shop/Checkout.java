package com.shop;

import fixtures.Deadlocks;
import java.io.BufferedReader;
import java.io.InputStreamReader;

/**
 * The program of the recipes for triggers: "pay" makes a call that returns and one that throws,
 * "gc" a collection, "deadlock" what it says.
 */
public final class Checkout {
    private Checkout() {
    }

    static int pay(String item, int count) {
        if (count < 0) {
            throw new IllegalArgumentException("no such count of " + item);
        }
        return count * 10;
    }

    private static void obey(String line) {
        if (line.equals("gc")) {
            System.gc();
        } else if (line.equals("deadlock")) {
            Deadlocks.make();
        } else {
            pay("book", 3);
            try {
                pay("", -1);
            } catch (IllegalArgumentException expected) {
                return;
            }
        }
    }

    public static void main(String[] args) throws Exception {
        BufferedReader in = new BufferedReader(new InputStreamReader(System.in));
        System.out.println("ready");
        for (String line = in.readLine(); line != null && !line.equals("stop");
             line = in.readLine()) {
            obey(line);
            System.out.println("done " + line);
        }
        System.out.println("bye");
    }
}
