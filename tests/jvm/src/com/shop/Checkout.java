package com.shop;

import java.io.BufferedReader;
import java.io.InputStreamReader;

/** The program of the recipes for triggers: "pay" makes a call that returns and one that throws. */
public final class Checkout {
    private Checkout() {
    }

    static int pay(String item, int count) {
        if (count < 0) {
            throw new IllegalArgumentException("no such count of " + item);
        }
        return count * 10;
    }

    public static void main(String[] args) throws Exception {
        BufferedReader in = new BufferedReader(new InputStreamReader(System.in));
        System.out.println("ready");
        for (String line = in.readLine(); line != null && !line.equals("stop");
             line = in.readLine()) {
            try {
                pay("book", 3);
                pay("book", -1);
            } catch (IllegalArgumentException e) {
                System.out.println("paid");
            }
        }
        System.out.println("bye");
    }
}
