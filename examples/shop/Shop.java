package shop;

import com.sun.net.httpserver.HttpExchange;
import com.sun.net.httpserver.HttpServer;
import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.nio.charset.StandardCharsets;
import java.util.concurrent.Executors;

/** A small server: /price?item=NAME looks a price up, and remembers it. */
public final class Shop {
    private final PriceCache myCache = new PriceCache();

    private Shop() {
    }

    /** Writes its port, and serves until it is killed. */
    public static void main(String[] args) throws IOException {
        Shop shop = new Shop();
        HttpServer server =
                HttpServer.create(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), 0);
        server.createContext("/price", shop::answer);
        server.setExecutor(Executors.newFixedThreadPool(4));
        server.start();
        System.out.println(server.getAddress().getPort());
    }

    void answer(HttpExchange exchange) throws IOException {
        String query = String.valueOf(exchange.getRequestURI().getQuery());
        try {
            reply(exchange, 200, "" + price(query.replace("item=", "")));
        } catch (IllegalArgumentException e) {
            reply(exchange, 404, e.getMessage());
        }
    }

    int price(String item) {
        Integer known = myCache.get(item);
        if (known != null) {
            return known;
        }
        int price = askSupplier(item);
        myCache.put(item, price);
        return price;
    }

    private static int askSupplier(String item) {
        if (item.isEmpty() || item.startsWith("no")) {
            throw new IllegalArgumentException("no such item: " + item);
        }
        try {
            Thread.sleep(20);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
        return item.length() * 100;
    }

    private static void reply(HttpExchange exchange, int status, String text) throws IOException {
        byte[] body = text.getBytes(StandardCharsets.UTF_8);
        exchange.sendResponseHeaders(status, body.length);
        exchange.getResponseBody().write(body);
        exchange.close();
    }
}
