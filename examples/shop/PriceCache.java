package shop;

import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;

/** Prices by item. */
final class PriceCache {
    private final Map<String, Integer> myPrices = new ConcurrentHashMap<>();

    Integer get(String item) {
        return myPrices.get(item);
    }

    void put(String item, int price) {
        myPrices.put(item, price);
    }
}
